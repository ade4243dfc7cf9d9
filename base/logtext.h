// SPDX-License-Identifier: MIT
/// \file Texts of others in lines of the log.
#pragma once

#include <QString>

namespace base {

/**
 * The text with every character escaped that could end the line, forge another one or change how a
 * terminal shows it: control and format characters, line and paragraph separators, unassigned ones
 * and half surrogate pairs, as "\n", "\r", "\t", "\u001b" or "\U000e0001". Everything else stays as
 * it is, without quotes. Thread-safe.
 */
QString oneLine(const QString &text);

/**
 * The text without what addresses in it may hold for nobody to read: user names and passwords are
 * left out, queries and fragments replaced by "?...". Thread-safe.
 */
QString withoutSecrets(const QString &text);

} // namespace base
