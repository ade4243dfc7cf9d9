// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QFile>
#include <QStringList>

/**
 * Files that are created together: each appears complete under its name or not at all, none
 * replaces another file, and all are removed again unless keep() is called.
 */
class NewFiles
{
public:
    NewFiles() = default;
    ~NewFiles();
    NewFiles(const NewFiles &) = delete;
    NewFiles &operator=(const NewFiles &) = delete;

    /**
     * Writes a file through a temporary one beside it.
     *
     * \param wanted  its path; if it is taken, "-2", "-3" and so on is inserted before the suffix
     * \return the actual path
     * \throws SigningFailure  NotWritten
     */
    QString write(const QString &wanted, const QByteArray &bytes, QFile::Permissions permissions);

    /// Keeps the files written so far.
    void keep() { m_paths.clear(); }

private:
    QStringList m_paths;
};
