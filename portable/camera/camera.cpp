// SPDX-License-Identifier: MIT
#include "portable/camera/camera.h"

#include "portable/base/failure.h"
#include "portable/camera/camerasources.h"

#include <atomic>
#include <exception>

namespace portable {

namespace {

std::atomic<quint64> lastSequence{0}; // shared by all cameras
constexpr int delaySmoothing = 8; // frames

} // namespace

Camera::Camera(int number, std::unique_ptr<FrameSource> source, const Settings &settings,
               base::Clock &clock)
    : m_number(number)
    , m_settings(settings)
    , m_clock(clock)
    , m_source(std::move(source))
{
}

Camera::~Camera()
{
    stop();
}

bool Camera::start()
{
    QString error;
    if (!open(&error)) {
        logWarning() << cameraName(m_number)
                     << "doesn't start:" << m_source->name() + QLatin1Char(':') << error;
        return false;
    }
    logInfo() << cameraName(m_number) << "started:" << m_source->name() + QLatin1Char(',')
              << sizeText(size());
    m_lastTaken = m_clock.now();
    m_thread = std::thread(&Camera::run, this);
    return true;
}

void Camera::stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stop = true;
    }
    m_stopped.notify_all();
    withdraw();
    if (m_thread.joinable()) {
        m_thread.join();
    }
    m_source->close();
}

bool Camera::nextFrame(quint64 &last, cv::Mat &frame, base::Clock::Duration timeout)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_lastTaken = m_clock.now();
    const auto isNew = [&] { return m_hasFrame && !m_isStale && m_sequence > last; };
    m_clock.waitFor(m_published, lock, timeout, [&] { return m_stop || isNew(); });
    if (!isNew()) {
        frame.release();
        return false;
    }
    last = m_sequence;
    frame = m_frame;
    return true;
}

bool Camera::currentFrame(cv::Mat &frame)
{
    const Settings::View settings = m_settings.view(m_number);
    std::unique_lock<std::mutex> lock(m_mutex);
    m_lastTaken = m_clock.now();
    const auto isWanted = [&] { return m_resolution == settings.resolution; };
    const auto timeout = isWanted() ? frameTimeout : resizeTimeout;
    m_clock.waitFor(m_published, lock, timeout,
                    [&] { return !m_hasFrame || (!m_isStale && m_revision >= settings.revision); });
    if (m_hasFrame && m_revision < settings.revision && !isWanted()) {
        logWarning() << cameraName(m_number) << "has no picture of the new size yet";
        frame.release();
        return false;
    }
    if (m_hasFrame && m_isStale) {
        logWarning() << cameraName(m_number) << "delivers no new picture";
        frame.release();
        return false;
    }
    frame = m_frame;
    return m_hasFrame;
}

bool Camera::peekFrame(cv::Mat &frame)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_lastTaken = m_clock.now();
    frame = m_isStale ? cv::Mat() : m_frame;
    return !frame.empty();
}

bool Camera::hasFrame() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_hasFrame;
}

void Camera::endAt(base::Clock::TimePoint time)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_end = time;
}

void Camera::endNotBefore(base::Clock::TimePoint time)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_end = std::max(m_end, time);
}

bool Camera::hasEnded() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_stop || m_clock.now() >= m_end;
}

base::Clock::Duration Camera::delay() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_delay;
}

cv::Size Camera::size() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_size;
}

void Camera::run()
{
    base::Clock::TimePoint due = m_clock.now();
    for (;;) {
        const double rate = m_source->framesPerSecond();
        const auto interval = std::chrono::duration<double>(rate > 0 ? 1 / rate : 0);
        // Missed frames aren't made up for.
        due = std::max(due + std::chrono::duration_cast<base::Clock::Duration>(interval),
                       m_clock.now());
        QString error;
        if (!sleepUntil(due) || (!grab(&error) && !recover(error))) {
            withdraw();
            m_source->close();
            return;
        }
    }
}

/// Opens the source and reads a frame: some devices fail only then.
bool Camera::open(QString *error)
{
    try {
        if (!openSource(m_settings.view(m_number), error)) {
            return false;
        }
    } catch (const std::exception &failure) {
        *error = QString::fromLocal8Bit(failure.what());
        return false;
    }
    if (!grab(error)) {
        m_source->close();
        return false;
    }
    return true;
}

bool Camera::openSource(const Settings::View &settings, QString *error)
{
    m_requestedSize = settings.resolution;
    m_adjusted = {};
    m_toneTable.release();
    m_focusRequest = settings.focusRequest;
    return m_source->open(m_requestedSize, error);
}

/// Applies what was requested since the last frame.
void Camera::adjustSource(const Settings::View &settings)
{
    if (settings.adjustments != m_adjusted) {
        m_adjusted = settings.adjustments;
        m_toneTable = toneTable(m_source->adjust(m_adjusted));
    }
    if (settings.focusRequest != m_focusRequest) {
        m_focusRequest = settings.focusRequest;
        if (!m_source->focus()) {
            logInfo() << cameraName(m_number) << "can't focus:" << m_source->name();
        }
    }
}

/// Reads a frame and publishes it, unless nobody wants one.
bool Camera::grab(QString *error)
{
    const Settings::View settings = m_settings.view(m_number);
    try {
        if (m_source->canSkip() && isIdle(settings)) {
            return m_source->skip(error);
        }
        cv::Mat frame;
        if (!read(settings, frame, error)) {
            return false;
        }
        publish(processed(frame, settings.orientation), frame.size(), settings);
        return true;
    } catch (const std::exception &failure) { // OpenCV's, or out of memory
        *error = QString::fromLocal8Bit(failure.what());
        return false;
    }
}

/// Whether nobody takes frames, so that the one there is from now on is out of date.
bool Camera::isIdle(const Settings::View &settings)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const bool isTaken = m_clock.now() < m_lastTaken + idleAfter;
    const bool isUpToDate = m_hasFrame && m_revision == settings.revision;
    const bool isIdle = isUpToDate && !isTaken;
    m_isStale = m_isStale || isIdle; // until the next one is published
    return isIdle;
}

bool Camera::read(const Settings::View &settings, cv::Mat &frame, QString *error)
{
    if (settings.resolution != m_requestedSize) {
        m_source->close();
        if (!openSource(settings, error)) {
            return false;
        }
    }
    adjustSource(settings);
    return m_source->read(frame, error);
}

/// Applies orientation and remaining adjustments to a frame of the source.
cv::Mat Camera::processed(const cv::Mat &frame, const Orientation &orientation)
{
    cv::Mat picture = turned(frame, orientation, m_pool);
    if (m_toneTable.empty()) {
        return picture;
    }
    cv::Mat result = picture.data == frame.data ? m_pool.take(picture.size()) : picture;
    cv::LUT(picture, m_toneTable, result);
    return result;
}

void Camera::publish(const cv::Mat &frame, const cv::Size &size, const Settings::View &settings)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stop) {
            return; // stop() has withdrawn the frame already
        }
        const auto delay = m_source->age();
        m_delay += m_hasFrame ? (delay - m_delay) / delaySmoothing : delay - m_delay;
        m_frame = frame;
        m_size = size;
        m_revision = settings.revision;
        m_resolution = settings.resolution;
        m_sequence = ++lastSequence;
        m_hasFrame = true;
        m_isStale = false;
    }
    m_published.notify_all();
}

/// Removes the frame and wakes waiting readers, who get none.
void Camera::withdraw()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_frame.release();
        m_hasFrame = false;
    }
    m_published.notify_all();
}

/// Retries until the lost source can be opened again. \return false when stopped
bool Camera::recover(const QString &why)
{
    withdraw();
    logWarning() << cameraName(m_number) << "lost:" << m_source->name() + QLatin1Char(':') << why;
    m_source->close();
    QString ignored;
    while (!open(&ignored)) {
        if (!sleepUntil(m_clock.now() + reopenInterval)) {
            return false;
        }
    }
    logInfo() << cameraName(m_number) << "is back:" << m_source->name();
    return true;
}

/// \return false as soon as the camera is stopped, and after its end
bool Camera::sleepUntil(base::Clock::TimePoint time)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_clock.waitUntil(m_stopped, lock, time, [this] { return m_stop; })
        && m_clock.now() < m_end;
}

} // namespace portable
