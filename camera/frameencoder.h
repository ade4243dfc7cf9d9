// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QImage>
#include <QSize>

#include <array>
#include <memory>
#include <optional>
#include <vector>

/**
 * Encodes a preview frame: scales it (nearest pixel), compresses it as JPEG, and returns base64.
 *
 * The JPEG is byte for byte the file that QImage::scaled (ignoring the aspect ratio, fast
 * transformation) and QImage::save ("jpg", default quality) produce. For the formats cameras
 * deliver (RGB32, RGB888, BGR888) it takes two thirds of their time: the pixels go directly into a
 * compressor that is kept from frame to frame, without a scaled copy.
 *
 * Not thread-safe. Its buffers are reused from frame to frame.
 */
class FrameEncoder
{
public:
    FrameEncoder();
    ~FrameEncoder();

    /**
     * Encodes a frame as a JPEG of the given size in pixels.
     * \return base64 text; empty for an empty frame or size, for sizes above 65500, and for files
     *         that textLength() refuses
     */
    QByteArray encode(const QImage &frame, QSize size);

    /**
     * A JPEG file of a picture in its own size, without a density.
     * \param picture  RGB888, BGR888 or Grayscale8
     * \return empty on failure
     */
    static std::vector<unsigned char> fileOf(const QImage &picture, int quality);

    /**
     * Length of the text of a file.
     * \return nullopt for files beyond 512 MiB: QByteArray has room for 2 GiB, and takes more than
     *         it is asked for
     */
    static std::optional<int> textLength(std::size_t fileLength);

private:
    class Compressor;

    QByteArray encodeByQt(const QImage &frame, QSize size);
    QByteArray textOf(const unsigned char *jpeg, std::size_t length);

    std::unique_ptr<Compressor> m_compressor;
    // A text is in use until it has been sent to all pages; the others are free by then.
    std::array<QByteArray, 4> m_texts;
    std::size_t m_nextText = 0;
};
