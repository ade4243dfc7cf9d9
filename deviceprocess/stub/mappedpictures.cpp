// SPDX-License-Identifier: MIT
#include "deviceprocess/stub/mappedpictures.h"

#include "deviceprocess/pictureheader.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <list>
#include <mutex>
#include <utility>

namespace deviceprocess {

namespace {

constexpr std::size_t maxMappings = 8; ///< Kept for the next picture in the same memory.

/// The memory of a segment, mapped; unmapped with the last reference.
class Mapping
{
public:
    Mapping(int descriptor, std::size_t size)
        : m_size(size)
        , m_data(mmap(nullptr, size, PROT_READ, MAP_SHARED, descriptor, 0))
    {
    }
    ~Mapping()
    {
        if (isOk()) {
            munmap(m_data, m_size);
        }
    }
    Mapping(const Mapping &) = delete;
    Mapping &operator=(const Mapping &) = delete;

    bool isOk() const { return m_data != MAP_FAILED; }
    std::size_t size() const { return m_size; }
    const uchar *data() const { return static_cast<const uchar *>(m_data); }

private:
    const std::size_t m_size;
    void *const m_data;
};

using MappingPointer = std::shared_ptr<const Mapping>;

/// The latest mappings, reused so that a preview doesn't map every frame.
class Mappings
{
public:
    static Mappings &instance()
    {
        static Mappings &mappings = *new Mappings; // pictures may outlive main()
        return mappings;
    }

    /// \return null when the descriptor is not what was said
    MappingPointer get(std::uint64_t segment, int descriptor, std::size_t size)
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (auto known = m_known.begin(); known != m_known.end(); ++known) {
            if (known->first == segment && known->second->size() == size) {
                m_known.splice(m_known.begin(), m_known, known);
                return known->second;
            }
        }
        if (!canBeMapped(descriptor, size)) {
            return nullptr;
        }
        auto mapping = std::make_shared<const Mapping>(descriptor, size);
        if (!mapping->isOk()) {
            return nullptr;
        }
        m_known.emplace_front(segment, mapping);
        if (m_known.size() > maxMappings) {
            m_known.pop_back();
        }
        return mapping;
    }

    void clear()
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_known.clear();
    }

private:
    /// Sealed, so that it can't get shorter under our eyes, and as long as it is said to be.
    static bool canBeMapped(int descriptor, std::size_t size)
    {
        struct stat status = {};
        const int seals = fcntl(descriptor, F_GET_SEALS);
        return seals >= 0 && (seals & F_SEAL_SHRINK) != 0 && fstat(descriptor, &status) == 0
            && status.st_size >= 0 && std::size_t(status.st_size) >= size;
    }

    std::mutex m_mutex;
    std::list<std::pair<std::uint64_t, MappingPointer>> m_known; // guarded; the latest first
};

/// Pixels of a picture, and what goes when nobody looks at them any more.
struct Pixels
{
    const uchar *data = nullptr;
    MappingPointer mapping; ///< Of shared ones.
    QByteArray bytes; ///< Of inline ones.
    ReleasePixels release;

    Pixels() = default;
    Pixels(const Pixels &) = delete;
    Pixels &operator=(const Pixels &) = delete;
    ~Pixels()
    {
        if (release) {
            release();
        }
    }
};

/// Shares Pixels between matrices: deletes them with the last matrix.
class PixelsAllocator : public cv::MatAllocator
{
public:
    cv::UMatData *allocate(int dims, const int *sizes, int type, void *data, size_t *step,
                           cv::AccessFlag flags, cv::UMatUsageFlags usage) const override
    {
        return cv::Mat::getStdAllocator()->allocate(dims, sizes, type, data, step, flags, usage);
    }
    bool allocate(cv::UMatData *data, cv::AccessFlag access,
                  cv::UMatUsageFlags usage) const override
    {
        return cv::Mat::getStdAllocator()->allocate(data, access, usage);
    }
    void deallocate(cv::UMatData *data) const override
    {
        delete static_cast<Pixels *>(data->handle);
        delete data;
    }
};

using MakeRelease = std::function<ReleasePixels(std::uint64_t)>;

/// \return null when the reply is damaged
std::unique_ptr<Pixels> readPixels(Reader &reader, const PictureHeader &header,
                                   std::uint64_t bytesUsed, const MakeRelease &makeRelease)
{
    auto pixels = std::make_unique<Pixels>();
    if (header.place == PixelPlace::Inline) {
        pixels->bytes = reader.bytes();
        pixels->data = reinterpret_cast<const uchar *>(pixels->bytes.constData());
        return std::uint64_t(pixels->bytes.size()) >= bytesUsed ? std::move(pixels) : nullptr;
    }
    const auto shared = reader.value<SharedPixels>();
    if (header.place != PixelPlace::Shared || !reader.isOk() || reader.descriptor() < 0
        || shared.offset > shared.segmentSize || shared.segmentSize - shared.offset < bytesUsed) {
        return nullptr;
    }
    pixels->release = makeRelease(shared.held);
    pixels->mapping =
        Mappings::instance().get(shared.segment, reader.descriptor(), shared.segmentSize);
    if (!pixels->mapping) {
        return nullptr;
    }
    pixels->data = pixels->mapping->data() + shared.offset;
    return pixels;
}

/// Bytes from the first pixel to the end of the last line; 0 for sizes that make no sense.
std::uint64_t bytesUsed(const PictureHeader &header, std::uint64_t bytesInLine)
{
    const bool isSound = header.width > 0 && header.height > 0 && header.width <= maxSide
        && header.height <= maxSide && bytesInLine > 0 && header.bytesPerLine >= bytesInLine
        && header.bytesPerLine < (1U << 30);
    return isSound ? header.bytesPerLine * std::uint64_t(header.height - 1) + bytesInLine : 0;
}

} // namespace

bool readPicture(Reader &reader, const MakeRelease &release, cv::Mat *picture)
{
    static PixelsAllocator &allocator = *new PixelsAllocator;
    *picture = cv::Mat();
    const auto header = reader.value<PictureHeader>();
    if (header.place == PixelPlace::None) {
        return reader.isOk();
    }
    const int type = CV_MAT_TYPE(header.format);
    const std::uint64_t used = bytesUsed(
        header, std::uint64_t(CV_ELEM_SIZE(type)) * std::uint64_t(std::max(header.width, 0)));
    auto pixels = used > 0 ? readPixels(reader, header, used, release) : nullptr;
    if (!pixels || header.format != type || header.bytesPerLine % CV_ELEM_SIZE1(type) != 0) {
        return false; // OpenCV would throw
    }
    cv::Mat shared(header.height, header.width, type, const_cast<uchar *>(pixels->data),
                   std::size_t(header.bytesPerLine));
    shared.u = new cv::UMatData(&allocator);
    shared.u->data = shared.u->origdata = const_cast<uchar *>(pixels->data);
    shared.u->size = used;
    shared.u->refcount = 1;
    shared.u->handle = pixels.release();
    *picture = std::move(shared);
    return true;
}

bool readPicture(Reader &reader, const MakeRelease &release, QImage *picture)
{
    *picture = QImage();
    const auto header = reader.value<PictureHeader>();
    if (header.place == PixelPlace::None) {
        return reader.isOk();
    }
    const auto format = QImage::Format(header.format);
    if (header.format <= QImage::Format_Invalid || header.format >= QImage::NImageFormats) {
        return false;
    }
    const auto bits = std::uint64_t(QImage::toPixelFormat(format).bitsPerPixel());
    const std::uint64_t bytesInLine = (bits * std::uint64_t(std::max(header.width, 0)) + 7) / 8;
    // QImage reads the padding of the last line, too, when it is copied.
    const std::uint64_t used = header.bytesPerLine * std::uint64_t(std::max(header.height, 0));
    auto pixels =
        bytesUsed(header, bytesInLine) > 0 ? readPixels(reader, header, used, release) : nullptr;
    if (!pixels) {
        return false;
    }
    const uchar *data = pixels->data;
    *picture = QImage(
        data, header.width, header.height, int(header.bytesPerLine), format,
        [](void *held) { delete static_cast<Pixels *>(held); }, pixels.release());
    picture->setDotsPerMeterX(header.dotsPerMeterX);
    picture->setDotsPerMeterY(header.dotsPerMeterY);
    return !picture->isNull();
}

void forgetMappings()
{
    Mappings::instance().clear();
}

} // namespace deviceprocess
