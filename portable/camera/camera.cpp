// SPDX-License-Identifier: MIT
#include "portable/camera/camera.h"

#include "portable/camera/camerasources.h"

#include <QDebug>

#include <atomic>
#include <exception>

namespace portable {

namespace {

std::atomic<quint64> framesPublished{0}; // by all cameras

} // namespace

Camera::Camera(int number, std::unique_ptr<FrameSource> source, const Settings &settings,
               CameraTimes times)
    : m_number(number)
    , m_settings(settings)
    , m_times(times)
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
        qWarning().noquote() << "portable:" << cameraName(m_number)
                             << "doesn't start:" << m_source->name() + QLatin1Char(':') << error;
        return false;
    }
    qInfo().noquote() << "portable:" << cameraName(m_number)
                      << "started:" << m_source->name() + QLatin1Char(',') << sizeText(size());
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

bool Camera::nextFrame(quint64 &last, cv::Mat &frame)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_published.wait_for(lock, m_times.frameWait, [&] { return !m_delivers || m_place > last; });
    if (!m_delivers || m_place <= last) {
        frame.release();
        return false;
    }
    last = m_place;
    frame = m_frame;
    return true;
}

bool Camera::currentFrame(cv::Mat &frame)
{
    const quint64 revision = m_settings.revision();
    std::unique_lock<std::mutex> lock(m_mutex);
    m_published.wait_for(lock, m_times.frameWait,
                         [&] { return !m_delivers || m_revision >= revision; });
    frame = m_frame;
    return m_delivers;
}

cv::Size Camera::size() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_size;
}

void Camera::run()
{
    Clock::time_point due = Clock::now();
    for (;;) {
        const double rate = m_source->framesPerSecond();
        const auto interval = std::chrono::duration<double>(rate > 0 ? 1 / rate : 0);
        // A frame that is late doesn't make the next one early.
        due = std::max(due + std::chrono::duration_cast<Clock::duration>(interval), Clock::now());
        QString error;
        if (!sleepUntil(due) || (!grab(&error) && !recover(error))) {
            return;
        }
    }
}

/// Opens the source and takes a frame, for some devices only then show that they can't.
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
    m_wanted = settings.resolution;
    m_adjusted = {};
    m_tones.release();
    m_focusing = settings.focusing;
    return m_source->open(m_wanted, error);
}

/// Does what was asked for since the last frame.
void Camera::adjustSource(const Settings::View &settings)
{
    if (settings.adjustments != m_adjusted) {
        m_adjusted = settings.adjustments;
        m_tones = toneTable(m_source->adjust(m_adjusted));
    }
    if (settings.focusing != m_focusing) {
        m_focusing = settings.focusing;
        if (!m_source->focus()) {
            qInfo().noquote() << "portable:" << cameraName(m_number)
                              << "has no focus to set:" << m_source->name();
        }
    }
}

/// Takes one frame from the source and publishes it.
bool Camera::grab(QString *error)
{
    const Settings::View settings = m_settings.view(m_number);
    try {
        cv::Mat frame;
        if (!read(settings, frame, error)) {
            return false;
        }
        publish(finished(frame, settings.orientation), frame.size(), settings.revision);
        return true;
    } catch (const std::exception &failure) { // OpenCV's, or too little memory
        *error = QString::fromLocal8Bit(failure.what());
        return false;
    }
}

bool Camera::read(const Settings::View &settings, cv::Mat &frame, QString *error)
{
    if (settings.resolution != m_wanted) {
        m_source->close();
        if (!openSource(settings, error)) {
            return false;
        }
    }
    adjustSource(settings);
    return m_source->read(frame, error);
}

/// The source's frame as readers get it.
cv::Mat Camera::finished(const cv::Mat &frame, const Orientation &orientation)
{
    const cv::Mat picture = turned(frame, orientation, m_pool);
    if (m_tones.empty()) {
        return picture;
    }
    cv::Mat result = picture.data == frame.data ? m_pool.take(picture.size()) : picture;
    cv::LUT(picture, m_tones, result);
    return result;
}

void Camera::publish(const cv::Mat &frame, const cv::Size &size, quint64 revision)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_stop) {
            return; // it was under way; withdraw() is the last word
        }
        m_frame = frame;
        m_size = size;
        m_revision = revision;
        m_place = ++framesPublished;
        m_delivers = true;
    }
    m_published.notify_all();
}

/// Takes the frame away; readers get none from now on, and those who wait hear of it.
void Camera::withdraw()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_frame.release();
        m_delivers = false;
    }
    m_published.notify_all();
}

/// Waits for a lost source to come back. \return false when told to stop
bool Camera::recover(const QString &why)
{
    withdraw();
    qWarning().noquote() << "portable:" << cameraName(m_number)
                         << "lost:" << m_source->name() + QLatin1Char(':') << why;
    m_source->close();
    QString notYet;
    do {
        if (!sleepUntil(Clock::now() + m_times.retry)) {
            return false;
        }
    } while (!open(&notYet));
    qInfo().noquote() << "portable:" << cameraName(m_number) << "is back:" << m_source->name();
    return true;
}

/// \return false when told to stop, at once
bool Camera::sleepUntil(Clock::time_point time)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_stopped.wait_until(lock, time, [this] { return m_stop; });
}

} // namespace portable
