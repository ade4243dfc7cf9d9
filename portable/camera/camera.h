// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"
#include "portable/camera/framesource.h"
#include "portable/camera/settings.h"
#include "portable/picture/orientation.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace portable {

constexpr std::chrono::seconds frameTimeout{2}; ///< How long readers wait for a frame at most.
/// How long currentFrame() waits for the first frame of another size: some cameras adapt to the
/// light first.
constexpr std::chrono::seconds resizeTimeout{6};
/// When nobody has taken a frame for so long, no more are decoded, where the source can do without.
constexpr std::chrono::seconds idleAfter{3};
static_assert(idleAfter > frameTimeout, "a waiting reader wants a frame");
/// Between attempts to reopen a lost source; the first one is made at once.
constexpr std::chrono::milliseconds reopenInterval{500};

/**
 * An open camera: a source, and a thread that reads it and keeps the newest frame for any number of
 * readers.
 *
 * Frames are rotated and flipped as set, once for all readers. Readers share a frame by reference
 * count and must not write to it; it never changes. When the source fails, there is no frame until
 * the thread has reopened it: nextFrame() waits, so that a short failure is no more than a gap;
 * currentFrame() fails at once.
 *
 * start() and stop() must not run at the same time; everything else may be called from any thread.
 */
class Camera
{
public:
    /**
     * \param number    identifies the camera in settings and log
     * \param settings  must outlive the camera, like the clock; changes apply from the next frame
     * on
     */
    Camera(int number, std::unique_ptr<FrameSource> source, const Settings &settings,
           base::Clock &clock = base::Clock::shared());
    ~Camera(); ///< Stops.
    Camera(const Camera &) = delete;
    Camera &operator=(const Camera &) = delete;

    int number() const { return m_number; }

    /// Opens the source and waits for its first frame. \return false with a line in the log
    bool start();

    /// Ends the thread and closes the source for good. Pending reads fail.
    void stop();

    /// Whether there is a frame: not before start(), after stop(), and while the source is lost.
    bool hasFrame() const;

    /// Ends the thread and closes the source at this time; TimePoint::max(): never.
    void endAt(base::Clock::TimePoint time);
    void endNotBefore(base::Clock::TimePoint time); ///< Only puts an end off.
    bool hasEnded() const;

    /**
     * Waits for a frame newer than the reader's last one.
     * \param last   sequence number of the reader's last frame, 0 before its first; set to that of
     *               `frame`. Sequence numbers increase, also from one camera to the next.
     * \param frame  8-bit BGR
     * \param timeout  how long at most
     * \return false, with `frame` empty, when none came
     */
    bool nextFrame(quint64 &last, cv::Mat &frame, base::Clock::Duration timeout = frameTimeout);

    /**
     * The newest frame, without waiting; after a change of settings, the first one taken with them,
     * and after a time without readers (idleAfter), the next one. If that doesn't come in
     * frameTimeout, the newest one; but never one of a former size, or from before that time.
     * \return false, with `frame` empty, when there is none
     */
    bool currentFrame(cv::Mat &frame);

    /// The newest frame without any wait. \return false, with `frame` empty, when it is out of date
    bool peekFrame(cv::Mat &frame);

    /// How long before its publication a frame was captured, on average.
    base::Clock::Duration delay() const;

    /// Frame size in pixels, before rotation.
    cv::Size size() const;

private:
    void run();
    bool open(QString *error);
    bool openSource(const Settings::View &settings, QString *error);
    void adjustSource(const Settings::View &settings);
    bool grab(QString *error);
    bool isIdle(const Settings::View &settings);
    bool read(const Settings::View &settings, cv::Mat &frame, QString *error);
    cv::Mat processed(const cv::Mat &frame, const Orientation &orientation);
    void publish(const cv::Mat &frame, const cv::Size &size, const Settings::View &settings);
    void withdraw();
    bool recover(const QString &why);
    bool sleepUntil(base::Clock::TimePoint time);

    const int m_number;
    const Settings &m_settings;
    base::Clock &m_clock;
    std::thread m_thread;

    // Used by the thread; by start() and stop() while it isn't running.
    const std::unique_ptr<FrameSource> m_source;
    cv::Size m_requestedSize; // that the source was opened with
    Adjustments m_adjusted; // applied to the source since it was opened
    quint64 m_focusRequest = 0; // the last one carried out
    cv::Mat m_toneTable; // for adjustments the source can't make
    FramePool m_pool;

    mutable std::mutex m_mutex;
    std::condition_variable m_published; // wakes readers: new frame, source lost, or stopped
    std::condition_variable m_stopped; // wakes the thread
    cv::Mat m_frame; // guarded by m_mutex, like all below; empty while there is none
    cv::Size m_size;
    base::Clock::Duration m_delay{};
    quint64 m_sequence = 0;
    quint64 m_revision = 0; // of the settings m_frame was taken with
    cv::Size m_resolution; // requested in them
    bool m_hasFrame = false;
    bool m_isStale = false; // later ones than m_frame have been skipped
    base::Clock::TimePoint m_lastTaken; // when a reader came
    bool m_stop = false;
    base::Clock::TimePoint m_end = base::Clock::TimePoint::max();
};

} // namespace portable
