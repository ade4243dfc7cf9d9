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

/// How long a lost camera is kept after stopMain(). The server stops and starts one that delivers
/// no frames, with a pause of 3 s; a camera that comes back meanwhile is there at once.
constexpr std::chrono::seconds lostCameraLimit{5};

/// How long a lost camera that couldn't be started is looked for after its last frame was asked
/// for.
constexpr std::chrono::seconds lookoutLimit{30};

/// How long a switch from one camera to another may take.
constexpr std::chrono::milliseconds cameraChangeLimit{5000};

/// Creates the source of a camera; null, with a reason for the log, when there is none.
using SourceFactory = std::function<std::unique_ptr<FrameSource>(int camera, QString *error)>;

/**
 * The open cameras: one for the main preview and, independently, camera 4. Also holds the settings,
 * which outlive them. Everything may be called from any thread.
 */
class CameraSet
{
public:
    /// The library's cameras, configured by devices.ini. Stopped when Qt's application ends.
    static CameraSet &instance();

    explicit CameraSet(SourceFactory factory, base::Clock &clock = base::Clock::shared());
    ~CameraSet();

    /**
     * Opens a camera after closing the one it replaces.
     * \param camera    a number that cameraKey() knows
     * \param rotation  0 keeps the setting; 90, 180 or 270 changes it; anything else fails
     * \return false, with one line in the log, when it delivers no frames; then none is open, but
     * one that was lost when stopMain() ended it, within lostCameraLimit, delivers frames as soon
     *         as it is back, as long as they are asked for
     */
    bool start(int camera, int rotation = 0) { return open(camera, rotation) != nullptr; }

    /// Like start(). \return the camera, even if it has been replaced since; null on failure
    std::shared_ptr<Camera> open(int camera, int rotation = 0);

    void stopMain();
    void stopFourth();

    /// Stops this camera unless it has already been replaced.
    void stop(const std::shared_ptr<Camera> &camera);

    /**
     * Announces that a stopMain() within cameraChangeLimit ends the preview rather than switching
     * cameras. The server stops the recording before the former, not before the latter.
     */
    void announceEnd();

    /// Whether the main preview has ended after announceEnd() and has not been started since.
    bool hasEnded() const;

    /// Whether any camera is open, including camera 4.
    bool isOpen() const;

    /// The camera of the main preview, for readers that keep their own position; null without one.
    std::shared_ptr<Camera> mainCamera() const;

    /// Camera 4; null while it isn't open.
    std::shared_ptr<Camera> fourthCamera() const;

    /// The preview's next frame; all callers share one position. See Camera::nextFrame.
    bool nextPreviewFrame(cv::Mat &frame);

    /// The main preview's newest frame, or camera 4's while only that is open.
    bool currentFrame(cv::Mat &frame) const;

    Settings &settings() { return m_settings; }

    /// Sizes a camera offers, open or not, largest first; empty when it isn't there.
    std::vector<cv::Size> sizes(int camera) const;

    /// Device node of a camera, open or not; empty when it isn't there or isn't hardware.
    QString devicePath(int camera) const;

    /// The size in use, or what start() would request; empty for a camera that isn't there.
    cv::Size size(int camera) const;

private:
    using Slot = std::shared_ptr<Camera>;

    void replace(Slot &slot, const Slot &camera);
    Slot exchanged(Slot &slot, const Slot &camera);
    Slot started(int camera);
    Slot takeLost(int camera);
    Slot get(const Slot &slot) const;
    std::unique_ptr<FrameSource> source(int camera) const;

    const SourceFactory m_factory;
    base::Clock &m_clock;
    Settings m_settings;
    std::atomic<quint64> m_previewSequence{0}; // of the last frame of nextPreviewFrame()

    std::mutex m_changing; // held throughout a start or stop
    Slot m_lost; // ended by stopMain() while it was lost; guarded by m_changing
    mutable std::mutex m_mutex; // never held while waiting
    Slot m_main; // guarded by m_mutex, like all below
    Slot m_fourth;
    base::Clock::TimePoint m_endAnnounced; // default: never
    bool m_ended = false;
};

} // namespace portable
