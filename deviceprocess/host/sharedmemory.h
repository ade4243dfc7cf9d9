// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>
#include <unistd.h>

#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

namespace deviceprocess {

/// A piece of memory that the server can map.
struct Segment
{
    std::uint64_t id = 0; ///< Never used again, nor by another process.
    std::size_t size = 0; ///< In bytes, whole pages.
    uchar *data = nullptr;
    int descriptor = -1; ///< Read-only, for the server.
    bool isUnused = false; ///< Free since the last dropUnused(), at least.
};

/**
 * Puts the pixels of large matrices into shared memory, so that a picture gets to the server
 * without a copy, whatever library made it. To be installed with cv::Mat::setDefaultAllocator()
 * before any matrix is made. Callable from any thread.
 *
 * Each matrix is a sealed memfd of its own; those that are free are used again. Beyond maxShared
 * matrices get ordinary memory, and their pixels are copied on the way.
 */
class SharedMemory : public cv::MatAllocator
{
public:
    /// Smaller matrices travel in the message: that is cheaper than mapping.
    static constexpr std::size_t minShared = std::size_t(256) * 1024;
    /// Bytes in use and kept for later use, of all segments together.
    static constexpr std::size_t maxShared = std::size_t(768) << 20;

    /// Where the bytes lie. \return false when they are not in shared memory
    bool find(const uchar *data, Segment *segment, std::size_t *offset) const;

    /// Gives what was free all the time since the last call back to the system.
    void dropUnused();

    cv::UMatData *allocate(int dims, const int *sizes, int type, void *data, size_t *step,
                           cv::AccessFlag flags, cv::UMatUsageFlags usage) const override;
    bool allocate(cv::UMatData *data, cv::AccessFlag access,
                  cv::UMatUsageFlags usage) const override;
    void deallocate(cv::UMatData *data) const override;

private:
    bool take(std::size_t size, Segment *segment) const;
    bool make(std::size_t size, Segment *segment) const;
    void giveBack(const Segment &segment) const;
    void destroy(const Segment &segment) const;

    mutable std::mutex m_mutex;
    mutable std::map<const uchar *, Segment> m_used; // guarded by m_mutex, as all below
    mutable std::vector<Segment> m_free;
    mutable std::size_t m_total = 0;
    /// The server may still have memory of a former process mapped: no id comes again.
    mutable std::uint64_t m_lastId = std::uint64_t(getpid()) << 32;
};

} // namespace deviceprocess
