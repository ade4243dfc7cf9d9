// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QImage>
#include <QSize>

#include <array>
#include <memory>
#include <vector>

/**
 * Makes the text of a preview frame: scaled (nearest pixel), JPEG, base64.
 *
 * The JPEG is, byte for byte, the file that QImage::scaled (ignoring the aspect ratio, fast
 * transformation) and QImage::save ("jpg", default quality) would make of the picture. For the
 * formats cameras deliver (RGB32, RGB888, BGR888) it costs two thirds of that: the pixels go
 * straight from the picture into one compressor that is kept, without a scaled copy between.
 *
 * Belongs to one thread at a time. Its buffers are reused from frame to frame.
 */
class FrameEncoder
{
public:
    FrameEncoder();
    ~FrameEncoder();

    /**
     * The base64 text of the frame as a JPEG of the size given, in pixels.
     * \return empty when there is no such JPEG: an empty size or frame, or one beyond 65500
     */
    QByteArray encode(const QImage &frame, QSize size);

private:
    class Compressor;

    QByteArray encodeByQt(const QImage &frame, QSize size);
    QByteArray textOf(const unsigned char *jpeg, std::size_t length);

    std::unique_ptr<Compressor> m_compressor;
    // A text is in use until the last page has it; by then some other is free again.
    std::array<QByteArray, 4> m_texts;
    std::size_t m_nextText = 0;
};
