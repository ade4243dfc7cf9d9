// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace portable {

/**
 * Whether a file can be made now under this path, for who needs it later or writes it bit by bit.
 * Changes and leaves nothing. \return false with a reason for the log, which names the path
 */
bool canWriteFile(const QString &path, QString *error);

} // namespace portable
