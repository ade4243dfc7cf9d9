// SPDX-License-Identifier: MIT
/// \file Texts that cross the device interface.
#pragma once

#include <QString>

#include <cstring>

namespace portable {

/// A copy up to the first NUL, which the caller releases with free(); null stays null.
inline char *heapText(const QByteArray &text)
{
    return text.isNull() ? nullptr : ::strdup(text.constData());
}

/// The same in UTF-8; never null.
inline char *heapText(const QString &text)
{
    return ::strdup(text.toUtf8().constData());
}

/// For the log: quoted, shortened, with line breaks and other unprintable characters escaped.
QString logText(const QString &text);

} // namespace portable
