// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace portable {

/**
 * Whether a file of `bytes` may be written at `path`, which need not exist: afterwards there must
 * be 256 MiB left on that disk, or a quarter of one smaller than 1 GiB. What pages store must not
 * fill a disk that the desktop, the log and other programs need. Unknown where the disk can't be
 * asked: then writing shows it. \return false, with a reason that doesn't name the path
 */
bool hasRoomFor(qint64 bytes, const QString &path, QString *error);

/// Whether files at these paths, which need not exist, take room from the same disk.
bool areOnOneDisk(const QString &one, const QString &other);

} // namespace portable
