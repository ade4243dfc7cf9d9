// SPDX-License-Identifier: MIT
#include "portable/recording/recorder.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFileInfo>

#include <algorithm>
#include <exception>

namespace portable {

namespace {

using Clock = RecorderTimes::Clock;

/// Who is that far behind lets a picture stand instead of encoding it again and again.
constexpr qint64 maxRepeats = 2 * picturesPerSecond;

/// How often a paused recording looks whether the preview has ended.
constexpr std::chrono::seconds pausedLook{1};

/// How many pictures a video of this length has.
qint64 picturesIn(Clock::duration length)
{
    const std::chrono::duration<double> seconds = length;
    return qint64(seconds.count() * picturesPerSecond + 0.5);
}

/// From when on there are so many.
Clock::duration timeOf(qint64 pictures)
{
    const std::chrono::duration<double> seconds((double(pictures) - 0.5) / picturesPerSecond);
    return std::chrono::ceil<Clock::duration>(seconds);
}

} // namespace

/// A video file that grows with the recorded time; its first picture is there already.
class Recorder::GrowingVideo
{
public:
    explicit GrowingVideo(VideoFile &file)
        : m_file(file)
    {
    }

    /// Makes it `count` pictures long with `frame` as the last; empty: the one before as well.
    bool growTo(qint64 count, const cv::Mat &frame, QString *error)
    {
        m_count = std::max(m_count, count - maxRepeats);
        for (; m_count < count; ++m_count) {
            // While we hold the frame its memory is not used for another.
            const bool fresh = m_count == count - 1 && !frame.empty() && frame.data != m_shown.data;
            if (!m_file.add(m_count, fresh ? frame : cv::Mat(), error)) {
                return false;
            }
            if (fresh) {
                m_shown = frame;
                ++m_fresh;
            }
        }
        return true;
    }

    /// For the log: a video with few pictures of its own stutters.
    QString summary() const
    {
        return QStringLiteral("%1, %2 s, %3 different pictures")
            .arg(m_file.path())
            .arg(double(m_count) / picturesPerSecond, 0, 'f', 1)
            .arg(m_fresh);
    }

private:
    VideoFile &m_file;
    cv::Mat m_shown;
    qint64 m_count = 1;
    qint64 m_fresh = 1;
};

Recorder &Recorder::instance()
{
    static Recorder recorder(CameraSet::instance());
    static const bool once = [] {
        // After that of the cameras, so it is called before: the preview is still there.
        qAddPostRoutine([] { recorder.finish(); });
        return true;
    }();
    Q_UNUSED(once)
    return recorder;
}

Recorder::Recorder(const CameraSet &cameras, RecorderTimes times)
    : m_cameras(cameras)
    , m_times(std::move(times))
{
}

Recorder::~Recorder()
{
    finish();
}

bool Recorder::start(const QString &path, VideoFormat format)
{
    QString error;
    const bool started = begin(path, format, &error);
    if (!started) {
        qWarning().noquote() << "portable: recording doesn't start:" << error;
    }
    return started;
}

bool Recorder::begin(const QString &path, VideoFormat format, QString *error)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_state != State::Idle) {
        *error = QStringLiteral("the former one is not finished");
        return false;
    }
    m_state = State::Starting;
    std::thread former = std::move(m_thread);
    lock.unlock();
    if (former.joinable()) {
        former.join();
    }
    auto file = open(path, format, error);
    if (file) {
        qInfo().noquote() << "portable: recording, without sound:" << file->description();
    }
    lock.lock();
    m_state = file ? State::Running : State::Idle;
    m_changed.notify_all();
    if (!file) {
        return false;
    }
    m_before = {};
    m_since = m_times.now();
    m_thread = std::thread(&Recorder::run, this, std::move(file));
    return true;
}

bool Recorder::stop()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Idle || m_state == State::Starting) {
        return false;
    }
    end();
    return true;
}

bool Recorder::pause()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state != State::Running) {
        return false;
    }
    m_before = recorded();
    m_state = State::Paused;
    return true;
}

bool Recorder::resume()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state != State::Paused) {
        return false;
    }
    m_since = m_times.now();
    m_state = State::Running;
    m_changed.notify_all();
    return true;
}

bool Recorder::isRecording() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_state != State::Idle && m_state != State::Starting;
}

void Recorder::setSize(qint64 width, qint64 height)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_width = width;
    m_height = height;
}

void Recorder::finish()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] {
        if (m_state != State::Starting) {
            end();
        }
        return m_state == State::Idle;
    });
    std::thread former = std::move(m_thread);
    lock.unlock();
    if (former.joinable()) {
        former.join();
    }
}

/// Makes the file, with its first picture in it.
std::unique_ptr<VideoFile> Recorder::open(const QString &path, VideoFormat format, QString *error)
try {
    cv::Mat frame;
    const auto camera = m_cameras.mainCamera();
    if (!camera || !camera->currentFrame(frame)) {
        *error = QStringLiteral("there is no preview");
        return nullptr;
    }
    // The extension would make a name of it.
    const QFileInfo file(path);
    if (file.fileName().isEmpty() || file.isDir()) {
        *error = QStringLiteral("the path is not that of a file");
        return nullptr;
    }
    qint64 width;
    qint64 height;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        width = m_width;
        height = m_height;
    }
    auto video = VideoFile::create(videoPath(path, format), format,
                                   videoSize(frame.size(), width, height), error);
    return video && video->add(0, frame, error) ? std::move(video) : nullptr;
} catch (const std::exception &failure) { // OpenCV's, or too little memory
    *error = QString::fromLocal8Bit(failure.what());
    return nullptr;
}

void Recorder::run(std::unique_ptr<VideoFile> file)
{
    GrowingVideo video(*file);
    QString error;
    bool whole = false;
    try {
        whole = record(video, &error) && file->finish(&error);
    } catch (const std::exception &failure) { // OpenCV's, or too little memory
        error = QString::fromLocal8Bit(failure.what());
    }
    const QString summary = video.summary();
    file.reset();
    if (whole) {
        qInfo().noquote() << "portable: recorded:" << summary;
    } else {
        qWarning().noquote() << "portable: the recording broke off:" << error;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_state = State::Idle;
    m_changed.notify_all();
}

bool Recorder::record(GrowingVideo &video, QString *error)
{
    PreviewWatch preview(m_cameras, m_times.cameraChange);
    qint64 due = 1;
    while (waitForPicture(&due)) {
        const auto camera = preview.camera();
        if (preview.ended()) {
            qInfo("portable: the recording ends with the preview");
            const std::lock_guard<std::mutex> lock(m_mutex);
            end();
            return true;
        }
        if (!camera) {
            continue; // it may be over; if not, what is missing is made up for
        }
        cv::Mat frame;
        camera->currentFrame(frame);
        if (!video.growTo(due, frame, error)) {
            return false;
        }
    }
    return video.growTo(due, {}, error);
}

/**
 * Waits for the moment of the next picture, or for something to happen before.
 * \param due  how many pictures were due; set to how many are now
 * \return false when the recording is to end, with `due` at that moment
 */
bool Recorder::waitForPicture(qint64 *due)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_state != State::Ending && picturesIn(recorded()) <= *due) {
        const Clock::duration toNext = timeOf(*due + 1) - recorded();
        m_changed.wait_for(lock, m_state == State::Paused ? pausedLook : toNext);
    }
    *due = std::max(*due, picturesIn(recorded()));
    return m_state != State::Ending;
}

/// Stops the clock, if it runs. To be called with m_mutex held, as the next one.
void Recorder::end()
{
    if (m_state == State::Running || m_state == State::Paused) {
        m_before = recorded();
        m_state = State::Ending;
        m_changed.notify_all();
    }
}

/// The time recorded until now.
Recorder::Clock::duration Recorder::recorded() const
{
    return m_state == State::Running ? m_before + (m_times.now() - m_since) : m_before;
}

} // namespace portable
