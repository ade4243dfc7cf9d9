// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/framesource.h"
#include "portable/camera/settings.h"
#include "portable/picture/orientation.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

namespace portable {

/// How long a camera lets wait; tests wait less.
struct CameraTimes
{
    std::chrono::milliseconds frameWait{2000}; ///< At most, for a reader.
    std::chrono::milliseconds retry{1000}; ///< Between attempts to find a lost source again.
};

/**
 * An open camera: a source and the thread that reads it, keeping the newest frame for any number of
 * readers.
 *
 * The frame is turned as the settings say, once for all readers. Readers share it by reference
 * count and must not write to it; nobody else does. A source that fails while it is open is lost:
 * readers get nothing, at once, until the thread has found it again.
 *
 * start() and stop() belong to one thread at a time; the rest is callable from any thread.
 */
class Camera
{
public:
    /**
     * \param number    what settings and log know it by
     * \param settings  outlive the camera; changes show from the next frame on
     */
    Camera(int number, std::unique_ptr<FrameSource> source, const Settings &settings,
           CameraTimes times = {});
    ~Camera(); ///< Stops.
    Camera(const Camera &) = delete;
    Camera &operator=(const Camera &) = delete;

    int number() const { return m_number; }

    /// Opens the source and waits for its first frame. \return false with the reason in the log
    bool start();

    /// Ends the thread and closes the source, for good; who waits for a frame gets none.
    void stop();

    /**
     * Waits for a frame newer than the reader's last one, at most CameraTimes::frameWait.
     * \param last   the reader's place, 0 before its first frame; set to that of `frame`. Places
     *               grow from frame to frame, also across cameras.
     * \param frame  8-bit BGR
     * \return false, with `frame` empty, when none came
     */
    bool nextFrame(quint64 &last, cv::Mat &frame);

    /**
     * The newest frame, without waiting; but after a change of the settings the first one that was
     * taken with them. \return false, with `frame` empty, when there is none
     */
    bool currentFrame(cv::Mat &frame);

    /// Of the frames in pixels, before rotation.
    cv::Size size() const;

private:
    using Clock = std::chrono::steady_clock;

    void run();
    bool open(QString *error);
    bool openSource(const Settings::View &settings, QString *error);
    void adjustSource(const Settings::View &settings);
    bool grab(QString *error);
    bool read(const Settings::View &settings, cv::Mat &frame, QString *error);
    cv::Mat finished(const cv::Mat &frame, const Orientation &orientation);
    void publish(const cv::Mat &frame, const cv::Size &size, quint64 revision);
    void withdraw();
    bool recover(const QString &why);
    bool sleepUntil(Clock::time_point time);

    const int m_number;
    const Settings &m_settings;
    const CameraTimes m_times;
    std::thread m_thread;

    // Of the thread, and of start() and stop() while it doesn't run.
    const std::unique_ptr<FrameSource> m_source;
    cv::Size m_wanted; // size the source was opened with
    Adjustments m_adjusted; // of the source since it was opened
    quint64 m_focusing = 0; // what it was asked to focus for last
    cv::Mat m_tones; // a toneTable: what it can't adjust by itself
    FramePool m_pool;

    mutable std::mutex m_mutex;
    std::condition_variable m_published; // wakes readers: a frame, a loss or the end
    std::condition_variable m_stopped; // wakes the thread
    cv::Mat m_frame; // guarded by m_mutex, as all below; empty while there is none
    cv::Size m_size;
    quint64 m_place = 0;
    quint64 m_revision = 0; // of the settings that m_frame was taken with
    bool m_delivers = false;
    bool m_stop = false;
};

} // namespace portable
