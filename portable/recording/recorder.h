// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"
#include "portable/camera/previewwatch.h"
#include "portable/recording/soundcapture.h"
#include "portable/video/videofile.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace portable {

/**
 * Records the main preview to a file, one recording at a time, at a constant 25 frames per second
 * of recording time (pauses excluded) whatever the camera's rate: excess frames are dropped,
 * missing ones replaced by repeating the last. A switch of cameras doesn't interrupt it; the end of
 * the preview ends it. The sound is that of a microphone, if there is one at the start; while it is
 * lost, there is silence.
 *
 * Threads of its own write the file. Everything may be called from any thread.
 */
class Recorder
{
public:
    /// The library's recorder. A recording is finished when Qt's application ends.
    static Recorder &instance();

    /// \param cameras  must outlive the recorder, like the clock
    explicit Recorder(const CameraSet &cameras, base::Clock &clock = base::Clock::shared(),
                      SoundOpener openSound = SoundCapture::shared);
    ~Recorder(); ///< Calls finish().
    Recorder(const Recorder &) = delete;
    Recorder &operator=(const Recorder &) = delete;

    /**
     * Starts recording with the newest frame.
     * \param path  of the file, see videoPath(); missing directories are created, an existing file
     *              is replaced
     * \return false, with one line in the log, without a preview, while another recording is
     *         running, or when the file can't be created
     */
    bool start(const QString &path, VideoFormat format);

    /// Ends the recording here, without waiting. \return false when none is running
    bool stop();

    bool pause(); ///< \return false when none is running or it is paused already
    bool resume(); ///< \return false when none is paused

    /// True from a successful start until the file is complete and closed, or has failed.
    bool isRecording() const;

    /// Size of future recordings, see videoSize().
    void setSize(qint64 width, qint64 height);

    /// Ends the recording, if any, and waits until its file is closed.
    void finish();

private:
    class ConstantRateVideo;
    enum class State { Idle, Starting, Running, Paused, Ending };

    /// What is recorded from a start or resume to a pause or the end.
    struct Part
    {
        base::Clock::TimePoint begin;
        base::Clock::TimePoint end = base::Clock::TimePoint::max();
        base::Clock::Duration before{}; ///< Recording time at its begin.
    };

    bool begin(const QString &path, VideoFormat format, QString *error);
    bool launch(const QString &path, VideoFormat format, QString *error);
    std::unique_ptr<VideoFile> open(const QString &path, VideoFormat format, bool withSound,
                                    QString *error);
    void run(std::unique_ptr<VideoFile> file, std::shared_ptr<SoundCapture> sound);
    bool record(ConstantRateVideo &video, QString *error);
    bool takeSound(ConstantRateVideo &video, QString *error);
    base::Clock::Duration cut(Sound &sound) const;
    bool waitForFrame(qint64 *due);
    void end();
    base::Clock::Duration recorded() const;

    const CameraSet &m_cameras;
    base::Clock &m_clock;
    const SoundOpener m_openSound;

    mutable std::mutex m_mutex;
    std::condition_variable m_changed; // of m_state
    State m_state = State::Idle; // guarded by m_mutex, like all below
    std::thread m_thread; // of the current recording, or one that has ended
    std::vector<Part> m_parts; // of the current recording or the last one
    qint64 m_width = 0;
    qint64 m_height = 0;
};

} // namespace portable
