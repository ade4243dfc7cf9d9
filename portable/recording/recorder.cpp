// SPDX-License-Identifier: MIT
#include "portable/recording/recorder.h"

#include "portable/base/diskspace.h"
#include "portable/base/failure.h"
#include "portable/recording/videoqueue.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFileInfo>

#include <algorithm>
#include <cmath>
#include <exception>

namespace portable {

namespace {

using Duration = base::Clock::Duration;

/// Further behind than this, frames are skipped instead of repeated.
constexpr qint64 maxRepeats = qint64(2) * videoFrameRate;

/// How long a frame that is due waits for the camera's next picture instead of repeating the last.
constexpr std::chrono::milliseconds lateness{500 / videoFrameRate};

/// How often a paused recording checks whether the preview has ended.
constexpr std::chrono::seconds pausedPollInterval{1};

/// The number of frames in a video of this length.
qint64 framesIn(Duration length)
{
    const std::chrono::duration<double> seconds = length;
    return std::llround(seconds.count() * videoFrameRate);
}

/// The shortest length with this number of frames.
Duration lengthOf(qint64 frames)
{
    const std::chrono::duration<double> seconds((double(frames) - 0.5) / videoFrameRate);
    return std::chrono::ceil<Duration>(seconds);
}

} // namespace

/// Writes frames at a constant rate; the file already has its first one.
class Recorder::ConstantRateVideo
{
public:
    /// \param sound  null: without
    ConstantRateVideo(VideoFile &file, std::shared_ptr<SoundCapture> sound)
        : m_file(file)
        , m_queue(file)
        , m_sound(std::move(sound))
        , m_soundPosition(m_sound ? m_sound->end() : 0)
    {
    }

    /// What the microphone has captured since the last call.
    std::vector<Sound> newSound()
    {
        return m_sound ? m_sound->take(m_soundPosition) : std::vector<Sound>();
    }

    bool addSound(Duration at, Samples samples, QString *error)
    {
        return m_queue.addSound(at, std::move(samples), error);
    }

    bool finish(QString *error) { return m_queue.finish(error); }

    /**
     * Extends it to `count` frames, the last one the camera's next picture; if that doesn't come
     * soon enough, repeats the last.
     * \param camera  null: there is none at present
     */
    bool growTo(qint64 count, Camera *camera, QString *error)
    {
        cv::Mat frame;
        if (camera && count > m_count) {
            camera->nextFrame(m_sequence, frame, lateness);
        }
        return growTo(count, frame, error);
    }

    /// Extends it to `count` frames, the last one `frame`; if that is empty, repeats the last.
    bool growTo(qint64 count, const cv::Mat &frame, QString *error)
    {
        m_count = std::max(m_count, count - maxRepeats);
        for (; m_count < count; ++m_count) {
            const bool isNew = m_count == count - 1 && !frame.empty() && m_queue.hasRoomFor(frame);
            if (!m_queue.add(m_count, isNew ? frame : cv::Mat(), error)) {
                return false;
            }
            if (isNew) {
                ++m_different;
            }
        }
        return true;
    }

    QString path() const { return m_file.path(); }

    /// For the log; a video with few different pictures stutters.
    QString summary() const
    {
        return QStringLiteral("%1, %2 s, %3 different pictures")
            .arg(m_file.path())
            .arg(double(m_count) / videoFrameRate, 0, 'f', 1)
            .arg(m_different);
    }

    Duration delay{}; ///< Of the pictures, and so of the sound.

private:
    VideoFile &m_file;
    VideoQueue m_queue;
    const std::shared_ptr<SoundCapture> m_sound;
    quint64 m_soundPosition;
    quint64 m_sequence = 0; // of the camera's picture taken last
    qint64 m_count = 1;
    qint64 m_different = 1;
};

Recorder &Recorder::instance()
{
    static Recorder recorder(CameraSet::instance());
    static const bool once = [] {
        // Registered after the cameras' routine, so called before it: the preview still runs.
        qAddPostRoutine([] { recorder.finish(); });
        return true;
    }();
    Q_UNUSED(once)
    return recorder;
}

Recorder::Recorder(const CameraSet &cameras, base::Clock &clock, SoundOpener openSound)
    : m_cameras(cameras)
    , m_clock(clock)
    , m_openSound(std::move(openSound))
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
        logWarning() << "recording doesn't start:" << error;
    }
    return started;
}

bool Recorder::begin(const QString &path, VideoFormat format, QString *error)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_state != State::Idle) {
        *error = QStringLiteral("the previous one has not finished");
        return false;
    }
    m_state = State::Starting;
    std::thread previous = std::move(m_thread);
    lock.unlock();
    if (previous.joinable()) {
        previous.join();
    }
    bool isRunning = false;
    try {
        isRunning = launch(path, format, error);
    } catch (const std::exception &failure) { // no memory, or no thread
        *error = QString::fromLocal8Bit(failure.what());
    }
    lock.lock();
    if (!isRunning) {
        m_state = State::Idle;
    }
    m_changed.notify_all();
    return isRunning;
}

/// From Starting to Running. \return false, with a reason, when the file can't be written
bool Recorder::launch(const QString &path, VideoFormat format, QString *error)
{
    QString silence;
    auto sound = m_openSound(&silence);
    auto file = open(path, format, sound != nullptr, error);
    if (!file) {
        return false;
    }
    logInfo() << (sound ? "recording:" : "recording, without sound:")
              << file->description() + QLatin1String(sound ? " from " : "; ")
            + (sound ? sound->name() : silence);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_parts = {{m_clock.now()}};
    m_thread = std::thread(&Recorder::run, this, std::move(file), std::move(sound));
    m_state = State::Running;
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
    m_parts.back().end = m_clock.now();
    m_state = State::Paused;
    return true;
}

bool Recorder::resume()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state != State::Paused) {
        return false;
    }
    Part next;
    next.begin = m_clock.now();
    next.before = recorded();
    m_parts.push_back(next);
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
    std::thread previous = std::move(m_thread);
    lock.unlock();
    if (previous.joinable()) {
        previous.join();
    }
}

/// Creates the file with its first frame.
std::unique_ptr<VideoFile> Recorder::open(const QString &path, VideoFormat format, bool withSound,
                                          QString *error)
try {
    cv::Mat frame;
    const auto camera = m_cameras.mainCamera();
    if (!camera || !camera->currentFrame(frame)) {
        *error = QStringLiteral("there is no preview");
        return nullptr;
    }
    // Checked before the extension is added, which would make a file name of it.
    const QFileInfo file(path);
    if (file.fileName().isEmpty() || file.isDir()) {
        *error = QStringLiteral("the path is not a file name");
        return nullptr;
    }
    if (!hasRoomFor(0, path, error)) {
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
                                   videoSize(frame.size(), width, height), withSound, error);
    return video && video->add(0, frame, error) ? std::move(video) : nullptr;
} catch (const std::exception &failure) { // OpenCV's, or out of memory
    *error = QString::fromLocal8Bit(failure.what());
    return nullptr;
}

void Recorder::run(std::unique_ptr<VideoFile> file, std::shared_ptr<SoundCapture> sound)
{
    QString error;
    QString summary;
    bool isComplete = false;
    try {
        ConstantRateVideo video(*file, std::move(sound));
        isComplete = record(video, &error) && takeSound(video, &error) && video.finish(&error);
        summary = video.summary();
    } catch (const std::exception &failure) { // OpenCV's, or out of memory
        error = QString::fromLocal8Bit(failure.what());
    }
    file.reset();
    if (isComplete) {
        logInfo() << "recorded:" << summary;
    } else {
        logWarning() << "the recording broke off:" << error;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_state = State::Idle;
    m_changed.notify_all();
}

bool Recorder::record(ConstantRateVideo &video, QString *error)
{
    PreviewWatch preview(m_cameras, m_clock);
    qint64 due = 1;
    qint64 nextCheck = videoFrameRate; // of the disk: each second
    while (waitForFrame(&due)) {
        if (!takeSound(video, error)) {
            return false;
        }
        const auto camera = preview.camera();
        if (preview.ended()) {
            qInfo("portable: the recording ends with the preview");
            const std::lock_guard<std::mutex> lock(m_mutex);
            end();
            return true;
        }
        if (due >= nextCheck) {
            nextCheck = due + videoFrameRate;
            if (!hasRoomFor(0, video.path(), error)) {
                qWarning().noquote() << "portable: the recording ends:" << *error;
                const std::lock_guard<std::mutex> lock(m_mutex);
                end();
                return true;
            }
        }
        if (!camera) {
            continue; // a switch of cameras, perhaps; missing frames are added afterwards
        }
        if (!video.growTo(due, camera.get(), error)) {
            return false;
        }
    }
    return video.growTo(due, nullptr, error);
}

/// Adds what the microphone has captured while the recording ran.
bool Recorder::takeSound(ConstantRateVideo &video, QString *error)
{
    // Pictures are recorded when they come, later than they were captured.
    if (const auto camera = m_cameras.mainCamera()) {
        video.delay = camera->delay();
    }
    for (Sound &sound : video.newSound()) {
        const Duration at = cut(sound);
        if (!sound.samples.empty()
            && !video.addSound(at + video.delay, std::move(sound.samples), error)) {
            return false;
        }
    }
    return true;
}

/// Leaves of a sound what was captured while the recording ran. \return the recording time of that
Duration Recorder::cut(Sound &sound) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto soundEnd = sound.capturedAt + soundLength(qint64(sound.samples.size()));
    const auto part = std::find_if(m_parts.rbegin(), m_parts.rend(), [&](const Part &candidate) {
        return candidate.begin < soundEnd && candidate.end > sound.capturedAt;
    });
    if (part == m_parts.rend()) {
        sound.samples.clear();
        return {};
    }
    const auto begin = std::max(part->begin, sound.capturedAt);
    const auto end = std::min(part->end, soundEnd);
    const auto first = sound.samples.begin();
    sound.samples = Samples(first + samplesIn(begin - sound.capturedAt),
                            first + samplesIn(end - sound.capturedAt));
    return part->before + (begin - part->begin);
}

/**
 * Waits until the next frame is due or the state changes.
 * \param due  number of frames due before the call; set to the number due now
 * \return false when the recording is to end, with the final `due`
 */
bool Recorder::waitForFrame(qint64 *due)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_state != State::Ending && framesIn(recorded()) <= *due) {
        const Duration untilNext = lengthOf(*due + 1) - recorded();
        m_clock.waitFor(m_changed, lock, m_state == State::Paused ? pausedPollInterval : untilNext);
    }
    *due = std::max(*due, framesIn(recorded()));
    return m_state != State::Ending;
}

/// Stops the recording time. Call with m_mutex held.
void Recorder::end()
{
    if (m_state == State::Running) {
        m_parts.back().end = m_clock.now();
    }
    if (m_state == State::Running || m_state == State::Paused) {
        m_state = State::Ending;
        m_changed.notify_all();
    }
}

/// Recording time so far. Call with m_mutex held.
Duration Recorder::recorded() const
{
    const Part &last = m_parts.back();
    return last.before + (std::min(m_clock.now(), last.end) - last.begin);
}

} // namespace portable
