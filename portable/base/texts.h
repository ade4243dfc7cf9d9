// SPDX-License-Identifier: MIT
/// \file Texts that cross the device interface.
#pragma once

#include <QString>

#include <cstring>

namespace portable {

/// A text for the caller, in UTF-8, who releases it with free().
inline char *heapText(const QString &text)
{
    return ::strdup(text.toUtf8().constData());
}

/// For the log: quoted, what can't be printed escaped, and no longer than a line should be.
QString logText(const QString &text);

} // namespace portable
