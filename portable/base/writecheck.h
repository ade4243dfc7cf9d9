// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace portable {

/**
 * Whether a file can be created at this path now, for work that writes it later. Leaves nothing
 * behind. \return false with a reason for the log, which names the path
 */
bool canWriteFile(const QString &path, QString *error);

} // namespace portable
