// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QFile>
#include <QStringList>

/**
 * Files that come into being together: each is whole under its name or not there at all, none takes
 * the place of another file, and all are removed again unless they are kept.
 */
class NewFiles
{
public:
    NewFiles() = default;
    ~NewFiles();
    NewFiles(const NewFiles &) = delete;
    NewFiles &operator=(const NewFiles &) = delete;

    /**
     * Writes a file by a temporary one beside it.
     *
     * \param wanted  its path; when that is taken "-2", "-3" and so on come before the suffix
     * \return the path it got
     * \throws SigningFailure  NotWritten
     */
    QString write(const QString &wanted, const QByteArray &bytes, QFile::Permissions permissions);

    /// They stay.
    void keep() { m_paths.clear(); }

private:
    QStringList m_paths;
};
