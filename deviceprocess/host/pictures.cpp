// SPDX-License-Identifier: MIT
#include "deviceprocess/host/pictures.h"

#include "deviceprocess/host/sharedmemory.h"

namespace deviceprocess {

namespace {

/// A color table would have to travel, too. Grey stays grey: its JPEG has one component.
QImage withoutColorTable(const QImage &picture)
{
    if (picture.colorCount() == 0) {
        return picture;
    }
    return picture.convertToFormat(picture.allGray() ? QImage::Format_Grayscale8
                                                     : QImage::Format_RGB32);
}

} // namespace

bool Pictures::writeShared(Writer &writer, PictureHeader header, const uchar *pixels, Held held)
{
    Segment segment;
    std::size_t offset = 0;
    if (!m_memory.find(pixels, &segment, &offset)) {
        return false;
    }
    SharedPixels shared{segment.id, segment.size, offset, 0};
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_held.size() >= maxHeld) {
            return false;
        }
        shared.held = ++m_lastHeld;
        m_held[shared.held] = std::move(held);
    }
    header.place = PixelPlace::Shared;
    writer.value(header);
    writer.value(shared);
    writer.setDescriptor(segment.descriptor);
    return true;
}

void Pictures::write(Writer &writer, const cv::Mat &picture)
{
    PictureHeader header;
    if (picture.empty() || picture.dims != 2) {
        writer.value(header);
        return;
    }
    header.width = picture.cols;
    header.height = picture.rows;
    header.format = picture.type();
    header.bytesPerLine = picture.step[0];
    if (writeShared(writer, header, picture.data, {picture, {}})) {
        return;
    }
    const cv::Mat whole = picture.isContinuous() ? picture : picture.clone();
    header.place = PixelPlace::Inline;
    header.bytesPerLine = whole.step[0];
    writer.value(header);
    writer.bytes(reinterpret_cast<const char *>(whole.data),
                 qint64(whole.step[0] * std::size_t(whole.rows)));
}

void Pictures::write(Writer &writer, const QImage &picture)
{
    PictureHeader header;
    if (picture.isNull()) {
        writer.value(header);
        return;
    }
    const QImage plain = withoutColorTable(picture);
    header.width = plain.width();
    header.height = plain.height();
    header.format = plain.format();
    header.bytesPerLine = std::uint64_t(plain.bytesPerLine());
    const QImage usual(1, 1, QImage::Format_Grayscale8); // as the display has it
    if (plain.dotsPerMeterX() != usual.dotsPerMeterX()) {
        header.dotsPerMeterX = plain.dotsPerMeterX();
    }
    if (plain.dotsPerMeterY() != usual.dotsPerMeterY()) {
        header.dotsPerMeterY = plain.dotsPerMeterY();
    }
    if (writeShared(writer, header, plain.constBits(), {{}, plain})) {
        return;
    }
    header.place = PixelPlace::Inline;
    writer.value(header);
    writer.bytes(reinterpret_cast<const char *>(plain.constBits()),
                 qint64(plain.bytesPerLine()) * plain.height());
}

void Pictures::release(std::uint64_t held)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_held.erase(held);
}

} // namespace deviceprocess
