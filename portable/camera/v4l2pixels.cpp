// SPDX-License-Identifier: MIT
// For the formats see the kernel's "Video for Linux API", "Image Formats".
#include "portable/camera/v4l2pixels.h"

#include "portable/base/inputlimits.h"

#include <linux/videodev2.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>

namespace portable {

namespace {

constexpr int maxBlock = 16; // pixels that the sides of a JPEG may be rounded up to

constexpr int noConversion = -1;

/// A format without compression.
struct RawFormat
{
    unsigned code;
    int bytesPerPixel; ///< Of the first plane.
    int conversion; ///< Of cv::cvtColor().
    bool isHalvedAcross; ///< Two pixels of a line share their color.
    bool isHalvedDown; ///< So do two lines, and the planes of color follow that of lightness.
};

constexpr RawFormat rawFormats[] = {
    {V4L2_PIX_FMT_YUYV, 2, cv::COLOR_YUV2BGR_YUYV, true, false},
    {V4L2_PIX_FMT_UYVY, 2, cv::COLOR_YUV2BGR_UYVY, true, false},
    {V4L2_PIX_FMT_NV12, 1, cv::COLOR_YUV2BGR_NV12, true, true},
    {V4L2_PIX_FMT_NV21, 1, cv::COLOR_YUV2BGR_NV21, true, true},
    {V4L2_PIX_FMT_YUV420, 1, cv::COLOR_YUV2BGR_I420, true, true},
    {V4L2_PIX_FMT_YVU420, 1, cv::COLOR_YUV2BGR_YV12, true, true},
    {V4L2_PIX_FMT_BGR24, 3, noConversion, false, false},
    {V4L2_PIX_FMT_RGB24, 3, cv::COLOR_RGB2BGR, false, false},
    {V4L2_PIX_FMT_GREY, 1, cv::COLOR_GRAY2BGR, false, false},
};

bool isJpeg(unsigned code)
{
    return code == V4L2_PIX_FMT_MJPEG || code == V4L2_PIX_FMT_JPEG;
}

const RawFormat *rawFormat(unsigned code)
{
    const auto *found = std::find_if(std::begin(rawFormats), std::end(rawFormats),
                                     [code](const RawFormat &raw) { return raw.code == code; });
    return found == std::end(rawFormats) ? nullptr : found;
}

/// Planes of U and V apart, whose lines are half as long as those of Y, padding included.
bool hasThreePlanes(const RawFormat &raw)
{
    return raw.code == V4L2_PIX_FMT_YUV420 || raw.code == V4L2_PIX_FMT_YVU420;
}

/// Bytes of a frame; behind the last line there may be no padding.
std::size_t bytesNeeded(const RawFormat &raw, const V4l2FrameFormat &format)
{
    const auto width = std::size_t(format.size.width);
    const auto height = std::size_t(format.size.height);
    if (hasThreePlanes(raw)) {
        return format.bytesPerLine * height + format.bytesPerLine / 2 * (height - 1) + width / 2;
    }
    const std::size_t rows = raw.isHalvedDown ? height * 3 / 2 : height;
    return format.bytesPerLine * (rows - 1) + width * std::size_t(raw.bytesPerPixel);
}

/// Without the padding of its lines, which OpenCV expects elsewhere.
cv::Mat packedPlanes(const V4l2FrameFormat &format, uchar *data)
{
    const cv::Size half(format.size.width / 2, format.size.height); // U and V, one below the other
    cv::Mat packed(format.size.height * 3 / 2, format.size.width, CV_8UC1);
    cv::Mat lightness = packed.rowRange(0, format.size.height);
    cv::Mat color(half, CV_8UC1, packed.ptr(format.size.height));
    uchar *colorData = data + format.bytesPerLine * std::size_t(format.size.height);
    cv::Mat(format.size, CV_8UC1, data, format.bytesPerLine).copyTo(lightness);
    cv::Mat(half, CV_8UC1, colorData, format.bytesPerLine / 2).copyTo(color);
    return packed;
}

} // namespace

const std::vector<unsigned> &decodableCodes()
{
    static const std::vector<unsigned> codes = [] {
        std::vector<unsigned> all{V4L2_PIX_FMT_MJPEG, V4L2_PIX_FMT_JPEG};
        for (const RawFormat &raw : rawFormats) {
            all.push_back(raw.code);
        }
        return all;
    }();
    return codes;
}

bool decodableFormat(unsigned code, unsigned width, unsigned height, unsigned bytesPerLine,
                     V4l2FrameFormat *format)
{
    const quint64 pixels = quint64(width) * height;
    if (pixels == 0 || pixels > quint64(limits::pixels)) {
        return false;
    }
    const cv::Size size{int(width), int(height)};
    const RawFormat *raw = rawFormat(code);
    if (!raw) {
        *format = {code, size, 0};
        return isJpeg(code);
    }
    const std::size_t needed = std::size_t(width) * std::size_t(raw->bytesPerPixel);
    *format = {code, size, std::max(std::size_t(bytesPerLine), needed)};
    return (!raw->isHalvedAcross || width % 2 == 0) && (!raw->isHalvedDown || height % 2 == 0);
}

bool V4l2Pixels::decode(const V4l2FrameFormat &format, const V4l2Bytes &bytes, cv::Mat &frame)
{
    const RawFormat *raw = rawFormat(format.code);
    if (!raw) {
        return decodeJpeg(format.size, bytes, frame);
    }
    if (bytes.size < bytesNeeded(*raw, format)) {
        return false;
    }
    const int rows = raw->isHalvedDown ? format.size.height * 3 / 2 : format.size.height;
    const std::size_t line = std::size_t(format.size.width) * std::size_t(raw->bytesPerPixel);
    auto *data = const_cast<uchar *>(bytes.data); // only read
    const bool isPadded = format.bytesPerLine != line;
    const cv::Mat source = hasThreePlanes(*raw) && isPadded
        ? packedPlanes(format, data)
        : cv::Mat(rows, format.size.width, CV_8UC(raw->bytesPerPixel), data, format.bytesPerLine);
    fit(frame, format.size);
    if (raw->conversion == noConversion) {
        source.copyTo(frame);
    } else {
        cv::cvtColor(source, frame, raw->conversion);
    }
    return true;
}

/// Replaces a frame of another size by one of the pool.
void V4l2Pixels::fit(cv::Mat &frame, const cv::Size &size)
{
    if (frame.size() != size || frame.type() != CV_8UC3) {
        frame = m_pool.take(size);
    }
}

bool V4l2Pixels::decodeJpeg(const cv::Size &largest, const V4l2Bytes &bytes, cv::Mat &frame)
{
    const cv::Size size = m_jpeg.begin(bytes.data, bytes.size);
    if (size.empty() || size.width >= largest.width + maxBlock
        || size.height >= largest.height + maxBlock) {
        return false;
    }
    fit(frame, size);
    return m_jpeg.decode(frame);
}

} // namespace portable
