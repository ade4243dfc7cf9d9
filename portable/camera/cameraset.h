// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/camera.h"
#include "portable/camera/settings.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace portable {

/// How long it may take to open a camera in place of another.
constexpr std::chrono::milliseconds usualCameraChange{5000};

/// Makes a camera's source; null with a reason for the log when it has none.
using SourceFactory = std::function<std::unique_ptr<FrameSource>(int camera, QString *error)>;

/**
 * The cameras that are open, and the settings, which survive them: the main preview (one camera at
 * a time) and, beside it, camera 4. Everything is callable from any thread.
 */
class CameraSet
{
public:
    /// Those of the library, as devices.ini beside the program says. Stopped when Qt's app ends.
    static CameraSet &instance();

    explicit CameraSet(SourceFactory factory, CameraTimes times = {});
    ~CameraSet();

    /**
     * Opens a camera in place of the one that is open in its stead, which ends first.
     * \param camera    a number that cameraKey() knows
     * \param rotation  0 as set; 90, 180 or 270 sets the rotation, any other fails
     * \return false, with one line in the log, when it delivers no frames; then none is open
     */
    bool start(int camera, int rotation = 0) { return open(camera, rotation) != nullptr; }

    /// As start(). \return the camera, whatever takes its place meanwhile; null when it fails
    std::shared_ptr<Camera> open(int camera, int rotation = 0);

    void stopMain();
    void stopFourth();

    /// Stops this camera, unless another is open in its stead.
    void stop(const std::shared_ptr<Camera> &camera);

    /**
     * Tells that a stopMain() that comes soon is the end of the preview and no change of cameras:
     * the server asks for the end of the recording before the one and not before the other.
     */
    void announceEnd();

    /// Whether the main preview has ended so, and none has been started since.
    bool hasEnded() const;

    /// Whether a camera is open, camera 4 counts too.
    bool isOpen() const;

    /// The camera of the main preview, for a reader with a place of its own; null without one.
    std::shared_ptr<Camera> mainCamera() const;

    /// The preview's next frame, from one place for all who call. See Camera::nextFrame.
    bool nextPreviewFrame(cv::Mat &frame);

    /// The main preview's newest frame, or camera 4's while it alone is open.
    bool currentFrame(cv::Mat &frame) const;

    Settings &settings() { return m_settings; }

    /// What a camera offers, open or not: the largest first, empty when it isn't there.
    std::vector<cv::Size> sizes(int camera) const;

    /// The node of a camera, open or not; empty when it isn't there or no hardware.
    QString devicePath(int camera) const;

    /// The size in use, or that a start would ask for; empty for a camera that isn't there.
    cv::Size size(int camera) const;

private:
    using Slot = std::shared_ptr<Camera>;
    using Clock = std::chrono::steady_clock;

    void replace(Slot &slot, const Slot &camera);
    Slot get(const Slot &slot) const;
    std::unique_ptr<FrameSource> source(int camera) const;

    const SourceFactory m_factory;
    const CameraTimes m_times;
    Settings m_settings;
    std::atomic<quint64> m_previewPlace{0};

    std::mutex m_changing; // held for a whole start or stop
    mutable std::mutex m_mutex; // never held while something waits
    Slot m_main; // guarded by m_mutex, as all below
    Slot m_fourth;
    Clock::time_point m_endAnnounced; // its default: not
    bool m_ended = false;
};

} // namespace portable
