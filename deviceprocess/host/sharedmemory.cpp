// SPDX-License-Identifier: MIT
#include "deviceprocess/host/sharedmemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>

namespace deviceprocess {

namespace {

constexpr std::size_t maxFree = 6; // as many frames as a preview has under way

std::size_t wholePages(std::size_t size)
{
    const auto page = std::size_t(sysconf(_SC_PAGESIZE));
    return (size + page - 1) / page * page;
}

/// Bytes of a matrix without gaps; fills in the steps where wanted.
std::size_t layOut(int dims, const int *sizes, int type, std::size_t *step)
{
    std::size_t total = CV_ELEM_SIZE(type);
    for (int i = dims - 1; i >= 0; --i) {
        if (step) {
            step[i] = total;
        }
        total *= std::size_t(sizes[i]);
    }
    return total;
}

} // namespace

void SharedMemory::dropUnused()
{
    std::vector<Segment> unused;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto begin = std::stable_partition(m_free.begin(), m_free.end(),
                                                 [](const Segment &one) { return !one.isUnused; });
        unused.assign(begin, m_free.end());
        m_free.erase(begin, m_free.end());
        for (Segment &segment : m_free) {
            segment.isUnused = true;
        }
        for (const Segment &segment : unused) {
            m_total -= segment.size;
        }
    }
    for (const Segment &segment : unused) {
        destroy(segment);
    }
}

cv::UMatData *SharedMemory::allocate(int dims, const int *sizes, int type, void *data, size_t *step,
                                     cv::AccessFlag flags, cv::UMatUsageFlags usage) const
{
    const std::size_t size = layOut(dims, sizes, type, nullptr);
    Segment segment;
    if (data || size < minShared || !take(wholePages(size), &segment)) {
        return cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usage);
    }
    layOut(dims, sizes, type, step);
    auto *result = new cv::UMatData(this);
    result->data = result->origdata = segment.data;
    result->size = size;
    return result;
}

bool SharedMemory::allocate(cv::UMatData *data, cv::AccessFlag /*access*/,
                            cv::UMatUsageFlags /*usage*/) const
{
    return data != nullptr;
}

void SharedMemory::deallocate(cv::UMatData *data) const
{
    if (!data) {
        return;
    }
    Segment segment;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto used = m_used.find(data->origdata);
        if (used != m_used.end()) {
            segment = used->second;
            m_used.erase(used);
        }
    }
    if (segment.data) {
        giveBack(segment);
    }
    delete data;
}

bool SharedMemory::find(const uchar *data, Segment *segment, std::size_t *offset) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    auto after = m_used.upper_bound(data);
    if (after == m_used.begin()) {
        return false;
    }
    const Segment &candidate = std::prev(after)->second;
    *offset = std::size_t(data - candidate.data);
    *segment = candidate;
    return *offset < candidate.size;
}

bool SharedMemory::take(std::size_t size, Segment *segment) const
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto fitting = std::find_if(m_free.begin(), m_free.end(),
                                          [size](const Segment &one) { return one.size == size; });
        if (fitting != m_free.end()) {
            *segment = *fitting;
            segment->isUnused = false;
            m_free.erase(fitting);
            m_used[segment->data] = *segment;
            return true;
        }
        if (m_total + size > maxShared) {
            return false;
        }
        m_total += size;
        segment->id = ++m_lastId;
    }
    if (!make(size, segment)) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_total -= size;
        return false;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_used[segment->data] = *segment;
    return true;
}

bool SharedMemory::make(std::size_t size, Segment *segment) const
{
    const int file = memfd_create("picture", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (file < 0) {
        return false;
    }
    // A size that can't change any more: the server maps it without the fear of a SIGBUS.
    void *data = MAP_FAILED;
    if (ftruncate(file, off_t(size)) == 0
        && fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL) == 0) {
        data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    }
    if (data != MAP_FAILED) {
        segment->size = size;
        segment->data = static_cast<uchar *>(data);
        const std::string path = "/proc/self/fd/" + std::to_string(file);
        segment->descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    }
    close(file);
    return data != MAP_FAILED;
}

void SharedMemory::giveBack(const Segment &segment) const
{
    Segment superfluous = segment;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_free.push_back(segment);
        if (m_free.size() <= maxFree) {
            return;
        }
        superfluous = m_free.front(); // the one that nobody wanted for longest
        m_free.erase(m_free.begin());
        m_total -= superfluous.size;
    }
    destroy(superfluous);
}

void SharedMemory::destroy(const Segment &segment) const
{
    munmap(segment.data, segment.size);
    close(segment.descriptor);
}

} // namespace deviceprocess
