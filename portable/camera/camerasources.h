// SPDX-License-Identifier: MIT
/// \file Assigns sources to camera numbers: devices.ini and its defaults.
#pragma once

#include "portable/camera/filesources.h"
#include "portable/camera/framesource.h"
#include "portable/camera/v4l2devices.h"

#include <QString>

#include <map>
#include <memory>

namespace portable {

/// The number of the dual camera: two sources in one picture.
constexpr int dualCamera = 25;

/// A camera's key in devices.ini, "1" or "dual"; empty for an unknown number.
QString cameraKey(int camera);

/// For the log: "camera 1", "the dual camera".
QString cameraName(int camera);

/// The contents of devices.ini; devices.ini.sample documents the keys.
struct DeviceConfig
{
    std::map<int, QString> sources; ///< Source text of each camera in the file.
    cv::Size sceneSize{1920, 1080};
    double sceneFramesPerSecond = 30;
    PlaybackSettings playback;
    bool isSimulated = false; ///< See isSimulationEnabled().
};

/// Reads a devices.ini. Invalid values are logged and replaced by their defaults.
DeviceConfig readDeviceConfig(const QString &path);

/**
 * The source text that "auto" stands for.
 * \param isSimulated  on a machine without any camera it is the test scene
 * \return empty, with a reason for the log, when the machine has too few cameras
 */
QString autoSource(int camera, const V4l2Devices &devices, bool isSimulated, QString *error);

/**
 * The source that `config` assigns to a camera, not opened yet.
 * \param lister  lists this machine's cameras; called only if the source text requires it
 * \return null, with a reason for the log, when there is none
 */
std::unique_ptr<FrameSource> makeSource(int camera, const DeviceConfig &config,
                                        const V4l2Lister &lister, QString *error);

} // namespace portable
