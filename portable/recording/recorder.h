// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/previewwatch.h"
#include "portable/recording/videofile.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace portable {

/// A recorder's sense of time; tests have their own.
struct RecorderTimes
{
    using Clock = std::chrono::steady_clock;

    std::chrono::milliseconds cameraChange = usualCameraChange;
    std::function<Clock::time_point()> now = Clock::now; ///< What the recorded time is taken from.
};

/**
 * Records the main preview into a file, one recording at a time: 25 pictures for each second that
 * it runs and isn't paused, however fast the camera delivers. Frames that come between are left
 * out; when none comes the last one is repeated. So it is while cameras change; when the preview
 * ends, the recording ends.
 *
 * The file is written by a thread of its own. Everything is callable from any thread.
 */
class Recorder
{
public:
    /// That of the library. Its recording is finished when Qt's app ends.
    static Recorder &instance();

    /// \param cameras  outlive the recorder
    explicit Recorder(const CameraSet &cameras, RecorderTimes times = {});
    ~Recorder(); ///< As finish().
    Recorder(const Recorder &) = delete;
    Recorder &operator=(const Recorder &) = delete;

    /**
     * Begins a recording with the newest frame.
     * \param path  of the file, see videoPath(); missing directories are made, an existing file is
     *              replaced
     * \return false, with one line in the log, without a preview, while there is another recording,
     *         or when the file can't be made
     */
    bool start(const QString &path, VideoFormat format);

    /// Lets the recording end here and returns at once. \return false when none runs
    bool stop();

    bool pause(); ///< \return false when none runs, or it is paused
    bool resume(); ///< \return false when none is paused

    /// From a successful start until the file is whole and closed, or has failed.
    bool isRecording() const;

    /// For later recordings, see videoSize().
    void setSize(qint64 width, qint64 height);

    /// Ends the recording, if there is one, and waits until its file is closed.
    void finish();

private:
    using Clock = RecorderTimes::Clock;
    class GrowingVideo;
    enum class State { Idle, Starting, Running, Paused, Ending };

    bool begin(const QString &path, VideoFormat format, QString *error);
    std::unique_ptr<VideoFile> open(const QString &path, VideoFormat format, QString *error);
    void run(std::unique_ptr<VideoFile> file);
    bool record(GrowingVideo &video, QString *error);
    bool waitForPicture(qint64 *due);
    void end();
    Clock::duration recorded() const;

    const CameraSet &m_cameras;
    const RecorderTimes m_times;

    mutable std::mutex m_mutex;
    std::condition_variable m_changed; // of m_state
    State m_state = State::Idle; // guarded by m_mutex, as all below
    std::thread m_thread; // may be left over from an ended recording
    Clock::duration m_before{}; // what was recorded until m_since
    Clock::time_point m_since; // start, or end of the last pause
    qint64 m_width = 0;
    qint64 m_height = 0;
};

} // namespace portable
