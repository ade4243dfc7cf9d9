// SPDX-License-Identifier: MIT
#include "portable/picture/resolution.h"

#include "portable/picture/tiff.h"

#include <QtEndian>

namespace portable {

namespace {

Dpi ofDotsPerMetre(quint32 x, quint32 y)
{
    constexpr double metresPerInch = 0.0254;
    return {qRound(x * metresPerInch), qRound(y * metresPerInch)};
}

/// The chunk pHYs, which lies before the first IDAT (ISO/IEC 15948, 11.3.5.3).
std::optional<Dpi> ofPng(const QByteArray &file)
{
    constexpr qint64 frame = 12; // length, type and checksum of a chunk
    const auto number = [&file](qint64 at) {
        return qFromBigEndian<quint32>(file.constData() + at);
    };
    for (qint64 at = 8; at + frame + 9 <= file.size(); at += frame + number(at)) {
        const QByteArray type = file.mid(int(at) + 4, 4);
        if (type == "pHYs" && file.at(int(at) + 16) == 1) { // in metres
            return ofDotsPerMetre(number(at + 8), number(at + 12));
        }
        if (type == "IDAT") {
            break;
        }
    }
    return {};
}

/// biXPelsPerMeter and biYPelsPerMeter of a BITMAPINFOHEADER.
std::optional<Dpi> ofBmp(const QByteArray &file)
{
    constexpr int end = 46;
    if (file.size() < end) {
        return {};
    }
    return ofDotsPerMetre(qFromLittleEndian<quint32>(file.constData() + 38),
                          qFromLittleEndian<quint32>(file.constData() + 42));
}

std::optional<Dpi> ofTiff(const QByteArray &file)
{
    const QSize dpi = tiffDpi(file);
    return dpi.isValid() ? std::make_optional(Dpi{dpi.width(), dpi.height()}) : std::nullopt;
}

} // namespace

std::optional<Dpi> storedDpi(const QByteArray &file)
{
    if (file.startsWith("\x89PNG\r\n\x1a\n")) {
        return ofPng(file);
    }
    if (isTiff(file)) {
        return ofTiff(file);
    }
    return file.startsWith("BM") ? ofBmp(file) : std::nullopt;
}

} // namespace portable
