// SPDX-License-Identifier: MIT
#include "portable/base/atomicfile.h"

#include "portable/base/diskspace.h"
#include "portable/base/failure.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QStringList>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <deque>

namespace portable {

namespace {

constexpr int longestKeptSuffix = 8;

QString systemError()
{
    return qt_error_string(errno);
}

/// A hidden name in the directory of `path` that nobody else uses or could guess and take first.
QString temporaryFor(const QString &path)
{
    const QFileInfo file(path);
    const QString suffix = file.suffix().left(longestKeptSuffix);
    const QString name =
        QStringLiteral(".part-%1")
            .arg(QRandomGenerator::system()->generate64(), 16, 16, QLatin1Char('0'));
    return file.path() + QLatin1Char('/') + name
        + (suffix.isEmpty() ? QString() : QLatin1Char('.') + suffix);
}

/// \return false with errno set
bool writeAll(int fd, const QByteArray &bytes)
{
    for (int written = 0; written < bytes.size();) {
        const ssize_t count =
            ::write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (count < 0 && errno != EINTR) {
            return false;
        }
        written += int(qMax<ssize_t>(count, 0));
    }
    return true;
}

using Writer = std::function<bool(const QString &temporary, QString *error)>;

/// A file under its temporary name, written or not; removed with the object unless committed.
class PendingFile
{
public:
    explicit PendingFile(QString path)
        : m_path(std::move(path))
    {
    }
    ~PendingFile();
    PendingFile(const PendingFile &) = delete;
    PendingFile &operator=(const PendingFile &) = delete;

    const QString &path() const { return m_path; }

    bool write(const QByteArray &bytes, Reserve reserve, QString *error);
    bool write(const Writer &writer, QString *error);

    /// Renames the file to its final name.
    bool commit(QString *error);

private:
    int create(QString *error);
    bool makeDirectories(QString *error);
    bool fail(const QString &why, QString *error) const;

    const QString m_path;
    QString m_temporary; // empty while there is none
    QStringList m_made; // directories, the deepest first
};

PendingFile::~PendingFile()
{
    if (!m_temporary.isEmpty()) {
        QFile::remove(m_temporary);
    }
    for (const QString &directory : qAsConst(m_made)) {
        QDir().rmdir(directory); // fails, rightly, where something lies in it by now
    }
}

bool PendingFile::write(const QByteArray &bytes, Reserve reserve, QString *error)
{
    QString why;
    if (reserve == Reserve::Keep && !hasRoomFor(bytes.size(), m_path, &why)) {
        return fail(why, error);
    }
    const int fd = create(error);
    if (fd < 0) {
        return false;
    }
    int failure = writeAll(fd, bytes) ? 0 : errno;
    if (::close(fd) != 0 && failure == 0) {
        failure = errno; // some file systems report a full disk only here
    }
    return failure == 0 || fail(qt_error_string(failure), error);
}

bool PendingFile::write(const Writer &writer, QString *error)
{
    const int fd = create(error);
    if (fd < 0) {
        return false;
    }
    ::close(fd);
    QString why;
    return writer(m_temporary, &why) || fail(why, error);
}

bool PendingFile::commit(QString *error)
{
    if (std::rename(QFile::encodeName(m_temporary).constData(),
                    QFile::encodeName(m_path).constData())
        != 0) {
        return fail(systemError(), error);
    }
    m_temporary.clear();
    m_made.clear();
    return true;
}

/// Opens the temporary file. \return -1 with a reason
int PendingFile::create(QString *error)
{
    const QFileInfo file(m_path);
    if (file.fileName().isEmpty()) {
        fail(QStringLiteral("not the name of a file"), error);
        return -1;
    }
    if (QFile::encodeName(m_path).size() >= PATH_MAX) { // before work that grows with its length
        fail(qt_error_string(ENAMETOOLONG), error);
        return -1;
    }
    // A rename would replace a device or a socket by a regular file.
    if (file.exists() && !file.isFile()) {
        fail(file.isDir() ? QStringLiteral("it is a directory")
                          : QStringLiteral("it exists and is not a regular file"),
             error);
        return -1;
    }
    if (!makeDirectories(error)) {
        return -1;
    }
    int fd;
    int attempts = 3; // no two files get the same name unless the random numbers are none
    do {
        m_temporary = temporaryFor(m_path);
        fd = ::open(QFile::encodeName(m_temporary).constData(),
                    O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    } while (fd < 0 && errno == EEXIST && --attempts > 0);
    if (fd < 0) {
        fail(systemError(), error);
        m_temporary.clear();
    }
    return fd;
}

bool PendingFile::makeDirectories(QString *error)
{
    QString directory = QFileInfo(m_path).path();
    QStringList missing;
    while (!QFileInfo::exists(directory) && directory != QFileInfo(directory).path()) {
        missing.prepend(directory);
        directory = QFileInfo(directory).path();
    }
    for (const QString &each : qAsConst(missing)) {
        if (::mkdir(QFile::encodeName(each).constData(), 0777) == 0) {
            m_made.prepend(each);
        } else if (errno != EEXIST) { // it exists: ".." after a missing one, or another process was
                                      // faster
            return fail(QStringLiteral("its directory can't be created: ") + systemError(), error);
        }
    }
    return true;
}

bool PendingFile::fail(const QString &why, QString *error) const
{
    constexpr int longestPath = 300; // a path from a page may be of any length
    const QString path =
        m_path.size() <= longestPath ? m_path : m_path.left(longestPath) + QStringLiteral("...");
    return setError(path + QStringLiteral(": ") + why, error);
}

} // namespace

QString pathOf(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

bool writeWholeFile(const QString &path, const QByteArray &bytes, QString *error, Reserve reserve)
{
    PendingFile file(path);
    return file.write(bytes, reserve, error) && file.commit(error);
}

bool writeWholeFile(const QString &path,
                    const std::function<bool(const QString &temporary, QString *error)> &write,
                    QString *error)
{
    PendingFile file(path);
    return file.write(write, error) && file.commit(error);
}

bool writeWholeFiles(const std::vector<FileContent> &files, QString *error)
{
    std::deque<PendingFile> pending;
    for (const FileContent &file : files) {
        pending.emplace_back(file.first);
        if (!pending.back().write(file.second, Reserve::Keep, error)) {
            return false;
        }
    }
    for (size_t i = 0; i < pending.size(); ++i) {
        if (!pending[i].commit(error)) {
            while (i > 0) {
                QFile::remove(pending[--i].path());
            }
            return false;
        }
    }
    return true;
}

} // namespace portable
