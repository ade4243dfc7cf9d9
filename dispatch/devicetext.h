// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

#include <cstdlib>
#include <cstring>
#include <memory>

/// Frees a text that the device library allocated with malloc.
struct FreeText
{
    void operator()(char *text) const { std::free(text); }
};
/// A malloc'ed text of the device library that the caller owns.
using DeviceText = std::unique_ptr<char, FreeText>;

/// Decodes a device text as UTF-8, the usual encoding; null is empty.
inline QString utf8Of(const DeviceText &text)
{
    return QString::fromUtf8(text.get());
}

/// Converts a device text byte by byte, as Latin-1; null is empty.
inline QString latin1Of(const DeviceText &text)
{
    return QString::fromLatin1(text.get());
}

/// The bytes before the first NUL, which some device libraries count in a message's length.
inline QByteArray upToNul(const QByteArray &bytes)
{
    // Not QByteArray::indexOf(), which takes a twentieth of a preview frame's time.
    const void *nul = std::memchr(bytes.constData(), '\0', std::size_t(bytes.size()));
    return nul ? bytes.left(int(static_cast<const char *>(nul) - bytes.constData())) : bytes;
}
