// SPDX-License-Identifier: MIT
#include "portable/picture/jpegdecoder.h"

#include "portable/picture/jpegfailure.h"

#include <algorithm>
#include <array>

namespace portable {

struct JpegDecoder::State
{
    jpeg_decompress_struct jpeg{};
    JpegFailure failure;
};

JpegDecoder::JpegDecoder()
    : m_state(std::make_unique<State>())
{
    m_state->jpeg.err = m_state->failure.install();
    jpeg_create_decompress(&m_state->jpeg);
}

JpegDecoder::~JpegDecoder()
{
    jpeg_destroy_decompress(&m_state->jpeg);
}

cv::Size JpegDecoder::begin(const uchar *data, std::size_t size)
{
    jpeg_decompress_struct &jpeg = m_state->jpeg;
    if (setjmp(m_state->failure.back) != 0) {
        return {};
    }
    jpeg_abort_decompress(&jpeg); // whatever became of the one before
    jpeg_mem_src(&jpeg, data, ulong(size));
    jpeg_read_header(&jpeg, TRUE);
    if (jpeg_has_multiple_scans(&jpeg) != 0) {
        return {};
    }
    return {int(jpeg.image_width), int(jpeg.image_height)};
}

bool JpegDecoder::decode(cv::Mat &picture)
{
    jpeg_decompress_struct &jpeg = m_state->jpeg;
    std::array<JSAMPROW, 16> rows; // more than libjpeg makes at a time
    if (setjmp(m_state->failure.back) != 0) {
        return false;
    }
    jpeg.out_color_space = JCS_EXT_BGR;
    jpeg_start_decompress(&jpeg);
    while (jpeg.output_scanline < jpeg.output_height) {
        const JDIMENSION first = jpeg.output_scanline;
        const JDIMENSION count = std::min(jpeg.output_height - first, JDIMENSION(rows.size()));
        for (JDIMENSION i = 0; i < count; ++i) {
            rows[i] = picture.ptr(int(first + i));
        }
        jpeg_read_scanlines(&jpeg, rows.data(), count);
    }
    jpeg_finish_decompress(&jpeg);
    return true;
}

void JpegDecoder::tolerateDamage()
{
    m_state->failure.toleratesDamage = true;
}

} // namespace portable
