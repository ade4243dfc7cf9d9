// SPDX-License-Identifier: MIT
#include "portable/recording/videoqueue.h"

#include <exception>
#include <utility>

namespace portable {

namespace {

constexpr std::size_t maxPictureBytes = std::size_t(100) << 20; // 16 of 1920 x 1080
constexpr std::size_t maxItems = 500; // pictures and sound of 10 s

std::size_t bytesOf(const cv::Mat &picture)
{
    return picture.total() * picture.elemSize();
}

} // namespace

VideoQueue::VideoQueue(VideoFile &file)
    : m_file(file)
    , m_thread(&VideoQueue::run, this)
{
}

VideoQueue::~VideoQueue()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_items.resize(m_items.empty() ? 0 : 1); // its thread has the first
        m_end = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

bool VideoQueue::hasRoomFor(const cv::Mat &picture) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_pictureBytes == 0 || m_pictureBytes + bytesOf(picture) <= maxPictureBytes;
}

bool VideoQueue::add(qint64 index, const cv::Mat &picture, QString *error)
{
    Item item;
    item.index = index;
    item.picture = picture;
    return push(std::move(item), error);
}

bool VideoQueue::addSound(base::Clock::Duration at, Samples samples, QString *error)
{
    Item item;
    item.at = at;
    item.samples = std::move(samples);
    return push(std::move(item), error);
}

bool VideoQueue::push(Item item, QString *error)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_hasFailed || m_items.size() < maxItems; });
    if (m_hasFailed) {
        *error = m_error;
        return false;
    }
    m_pictureBytes += bytesOf(item.picture);
    m_items.push_back(std::move(item));
    m_changed.notify_all();
    return true;
}

bool VideoQueue::finish(QString *error)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_end = true;
    }
    m_changed.notify_all();
    m_thread.join();
    if (m_hasFailed) {
        *error = m_error;
        return false;
    }
    return m_file.finish(error);
}

void VideoQueue::run()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_end || !m_items.empty(); });
        if (m_items.empty()) {
            return;
        }
        const Item &item = m_items.front(); // stays where it is while others are added
        lock.unlock();
        QString error;
        const bool isWritten = write(item, &error);
        lock.lock();
        m_pictureBytes -= bytesOf(item.picture);
        m_items.pop_front();
        if (!isWritten) {
            m_error = error;
            m_hasFailed = true;
        }
        m_changed.notify_all();
        if (!isWritten) {
            return;
        }
    }
}

bool VideoQueue::write(const Item &item, QString *error)
try {
    return item.index >= 0 ? m_file.add(item.index, item.picture, error)
                           : m_file.addSound(item.at, item.samples, error);
} catch (const std::exception &failure) { // OpenCV's, or out of memory
    *error = QString::fromLocal8Bit(failure.what());
    return false;
}

} // namespace portable
