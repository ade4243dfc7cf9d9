// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

#include <memory>

namespace portable {

/// Decodes the JPEGs of a camera, one after the other. Used by one thread at a time.
class JpegDecoder
{
public:
    JpegDecoder();
    ~JpegDecoder();
    JpegDecoder(const JpegDecoder &) = delete;
    JpegDecoder &operator=(const JpegDecoder &) = delete;

    /**
     * Begins a picture. A frame has one scan, as all that cameras make; progressive ones, which
     * take any time, are refused.
     * \param data  must stay until decode()
     * \return its size in pixels; empty when it can't be decoded
     */
    cv::Size begin(const uchar *data, std::size_t size);

    /**
     * Decodes the picture that was begun, once. \param picture  8-bit BGR of its size
     * \return false when it is damaged or cut short; then `picture` holds a part of it
     */
    bool decode(cv::Mat &picture);

    /// From now on pictures with wrong pixels are good enough, but not those cut short.
    void tolerateDamage();

private:
    struct State;
    const std::unique_ptr<State> m_state;
};

} // namespace portable
