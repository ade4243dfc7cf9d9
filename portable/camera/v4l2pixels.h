// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/v4l2stream.h"
#include "portable/picture/framepool.h"
#include "portable/picture/jpegdecoder.h"

#include <vector>

namespace portable {

/// The V4L2 formats that are decoded, best first: MJPEG, which reaches the full rate at large
/// sizes, then those with color.
const std::vector<unsigned> &decodableCodes();

/**
 * What a driver has answered, as a format.
 * \param bytesPerLine  that of its answer; some leave out the padding, or all
 * \return false for another code, a size of 0 or beyond the limits, an odd one of chroma shared by
 *         two pixels
 */
bool decodableFormat(unsigned code, unsigned width, unsigned height, unsigned bytesPerLine,
                     V4l2FrameFormat *format);

/// Turns the frames of a stream into 8-bit BGR. Used by one thread.
class V4l2Pixels
{
public:
    /**
     * \param frame  of the format's size; a JPEG may be smaller than that. One of a pool, unless
     *               it has the picture's size already
     * \return false for a frame that is damaged or too short
     */
    bool decode(const V4l2FrameFormat &format, const V4l2Bytes &bytes, cv::Mat &frame);

    /// From now on JPEGs with wrong pixels are good enough.
    void tolerateDamage() { m_jpeg.tolerateDamage(); }

private:
    void fit(cv::Mat &frame, const cv::Size &size);
    bool decodeJpeg(const cv::Size &largest, const V4l2Bytes &bytes, cv::Mat &frame);

    JpegDecoder m_jpeg;
    FramePool m_pool;
};

} // namespace portable
