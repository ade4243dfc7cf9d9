// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <sys/types.h>

namespace accesspolicy {

/// What a path leads to, as the kernel opens it at this moment.
struct RealPath
{
    enum class Type {
        Missing, ///< nothing yet; the folder it would be in may be missing too
        File,
        Folder,
        CharacterDevice,
        Link, ///< only where it isn't followed
        Other, ///< another device, a pipe, a socket
    };

    QByteArray path; ///< absolute; without links, "." and ".."
    Type type = Type::Missing;
    qint64 size = 0; ///< of a file, in bytes
    QString problem; ///< why there is none; empty: there is
};

enum class LastLink {
    Follow,
    Keep, ///< the link itself is meant, as when it is deleted
    /// A file is meant that a library will make, with this name or with an extension added to it;
    /// a link with one of these names is a problem.
    None,
};

/**
 * Finds out what a path leads to: links are followed, but none of procfs that lead elsewhere, and
 * none that lead to nothing. What doesn't exist is placed below the deepest folder that does; there
 * may be no ".." in that part.
 * \param path  relative ones start at the current folder
 */
RealPath realPath(const QByteArray &path, LastLink lastLink = LastLink::Follow);

/// For tests: false makes realPath() do without openat2(2), as on a kernel before 5.6.
void setOpenat2Used(bool used);

/// Whether a path, without links and "..", is this folder or below it.
bool isWithin(const QByteArray &path, const QByteArray &folder);

} // namespace accesspolicy
