// SPDX-License-Identifier: MIT
#pragma once

#include "portable/video/videofile.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace portable {

/**
 * Writes a video on a thread of its own: an encoder that is slow for a moment, on a busy machine,
 * costs no pictures. Used by one thread, which waits when much is pending.
 */
class VideoQueue
{
public:
    /// \param file  must outlive the queue
    explicit VideoQueue(VideoFile &file);
    ~VideoQueue(); ///< What is pending is lost without a finish().
    VideoQueue(const VideoQueue &) = delete;
    VideoQueue &operator=(const VideoQueue &) = delete;

    /// Whether there is memory for another picture of this size. Repeated ones take none.
    bool hasRoomFor(const cv::Mat &picture) const;

    // As those of VideoFile. They fail when writing has failed, for these or what came before.
    bool add(qint64 index, const cv::Mat &picture, QString *error);
    bool addSound(base::Clock::Duration at, Samples samples, QString *error);
    bool finish(QString *error);

private:
    struct Item
    {
        qint64 index = -1; // of a picture
        cv::Mat picture;
        base::Clock::Duration at{}; // of sound
        Samples samples;
    };

    bool push(Item item, QString *error);
    void run();
    bool write(const Item &item, QString *error);

    VideoFile &m_file;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Item> m_items; // guarded by m_mutex, like all below; the first is being written
    std::size_t m_pictureBytes = 0; // of m_items
    bool m_end = false; // once m_items is empty
    QString m_error; // why writing has failed
    bool m_hasFailed = false;
    std::thread m_thread;
};

} // namespace portable
