// SPDX-License-Identifier: MIT
#pragma once

#include "access/realpath.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <vector>

namespace accesspolicy {

/// Folders that no policy opens, as absolute paths without links.
struct NeverFolders
{
    std::vector<QByteArray> folders; ///< of the program, the log, the policy, the system
    std::vector<QByteArray>
        homes; ///< below them, nothing whose path has a name that begins with "."

    /// \param own  folders of the program, its data and its settings
    static NeverFolders of(const QStringList &own);

    bool contains(const QByteArray &path) const;
};

/// [files] of a policy: which paths of pages may be opened, and how. Main thread only.
class PathRules
{
public:
    enum class Right { Read, Write, Delete };

    struct Answer
    {
        bool isAllowed = false;
        QByteArray path; ///< the real one, which the command gets
        RealPath::Type type = RealPath::Type::Missing;
        qint64 size = 0;
        QString reason; ///< why not
        const char *key = ""; ///< of [files] that decided
    };

    void setFolders(Right right, const QStringList &folders);
    void setDeniedExtensions(const QStringList &extensions);
    void setNever(const NeverFolders &never) { m_never = never; }

    /// Folders of the policy that can never be opened: for whoever reads it. Empty: none.
    QString impossibleFolder() const;

    /// The folders of a right, as absolute paths.
    QStringList folders(Right right) const;

    /**
     * Decides on what a path leads to now.
     * \param path  as the page gave it
     */
    Answer decide(const QString &path, Right right) const;

    /// The same for a path at whose end a link is meant itself.
    Answer decideEntry(const QString &path, Right right) const;

    /// Decides on the file that a library makes of a name in a folder by adding an extension.
    Answer decideNew(const QString &path) const;

private:
    /// A folder of the policy. Where it lies is found out once, as soon as it exists.
    struct Folder
    {
        QByteArray path; // absolute, as in the file
        mutable QByteArray place; // without links; empty: it doesn't exist yet

        const QByteArray &real() const;
    };

    Answer decided(const QString &path, Right right, LastLink lastLink) const;
    bool isInFolders(const QByteArray &path, Right right) const;
    bool hasDeniedExtension(const QByteArray &path) const;
    const std::vector<Folder> &of(Right right) const;

    std::vector<Folder> m_read;
    std::vector<Folder> m_write;
    std::vector<Folder> m_delete;
    QStringList m_deniedExtensions; // in lower case
    NeverFolders m_never;
};

} // namespace accesspolicy
