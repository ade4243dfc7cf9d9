// SPDX-License-Identifier: MIT
/// \file Which camera is which source: devices.ini, and what is taken without it.
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

/// Its key in devices.ini, "1" or "dual"; empty for a number that is no camera's.
QString cameraKey(int camera);

/// For the log: "camera 1", "the dual camera".
QString cameraName(int camera);

/// What stands in devices.ini; devices.ini.sample says what each key means.
struct DeviceConfig
{
    std::map<int, QString> sources; ///< Source text of each camera that the file names.
    cv::Size sceneSize{1920, 1080};
    double sceneFramesPerSecond = 30;
    Playback playback;
};

/// Reads a devices.ini. What can't be understood is said in the log, and left as it is without.
DeviceConfig readDeviceConfig(const QString &path);

/**
 * The source text that "auto" stands for.
 * \return empty, with a reason for the log, when this machine has too few cameras
 */
QString autoSource(int camera, const V4l2Devices &devices, QString *error);

/**
 * The source that `config` gives a camera, not opened yet.
 * \param lister  asked for this machine's cameras where the source text needs them
 * \return null, with a reason for the log, when there is none
 */
std::unique_ptr<FrameSource> makeSource(int camera, const DeviceConfig &config,
                                        const V4l2Lister &lister, QString *error);

} // namespace portable
