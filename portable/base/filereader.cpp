// SPDX-License-Identifier: MIT
#include "portable/base/filereader.h"

#include "portable/base/failure.h"
#include "portable/base/inputlimits.h"

#include <QFile>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace portable {

namespace {

bool setTooLarge(qint64 maxBytes, QString *error)
{
    return setError(QStringLiteral("it is larger than %1 bytes").arg(maxBytes), error);
}

bool setNoFile(int reason, QString *error)
{
    return setError(reason == ENOENT || reason == ENOTDIR ? QStringLiteral("there is no such file")
                                                          : qt_error_string(reason),
                    error);
}

} // namespace

RegularFile::~RegularFile()
{
    if (m_file >= 0) {
        ::close(m_file);
    }
}

bool RegularFile::open(const QString &path, qint64 maxBytes, QString *error)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat status = {};
    // Asked before it is opened, too: opening some devices does something.
    if (path.isEmpty() || path.contains(QChar(0))) {
        return setNoFile(ENOENT, error);
    }
    if (::stat(name.constData(), &status) != 0) {
        return setNoFile(errno, error);
    }
    if (S_ISREG(status.st_mode)) {
        m_file = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
        if (m_file < 0 || ::fstat(m_file, &status) != 0) {
            return setNoFile(errno, error);
        }
    }
    if (!S_ISREG(status.st_mode)) {
        return setError(QStringLiteral("it is not a regular file"), error);
    }
    if (status.st_size > maxBytes) {
        return setTooLarge(maxBytes, error);
    }
    m_size = status.st_size;
    m_permissions = status.st_mode & 07777;
    m_maxBytes = m_size > 0 ? maxBytes : std::min(maxBytes, limits::sizelessFile);
    return true;
}

qint64 RegularFile::read(char *buffer, qint64 length, QString *error)
{
    ssize_t count = 0;
    do {
        count = ::read(m_file, buffer, size_t(length));
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        setError(qt_error_string(errno), error);
        return -1;
    }
    m_read += count;
    if (m_read > m_maxBytes) {
        setTooLarge(m_maxBytes, error);
        return -1;
    }
    return count;
}

bool RegularFile::rewind()
{
    m_read = 0;
    return ::lseek(m_file, 0, SEEK_SET) == 0;
}

QByteArray readWholeFile(const QString &path, qint64 maxBytes, QString *error)
{
    maxBytes = std::min<qint64>(maxBytes, INT_MAX / 2); // what a QByteArray holds
    constexpr qint64 leastStep = 1 << 16; // some files of the kernel refuse to be read in bits
    RegularFile file;
    if (!file.open(path, maxBytes, error)) {
        return {};
    }
    QByteArray bytes("");
    bytes.reserve(int(file.size() + leastStep));
    for (qint64 size = 0;;) {
        const qint64 wanted = std::clamp<qint64>(file.size() + 1 - size, leastStep, limits::mebi);
        bytes.resize(int(size + wanted));
        const qint64 count = file.read(bytes.data() + size, wanted, error);
        if (count < 0) {
            return {};
        }
        size += count;
        if (count == 0) {
            bytes.resize(int(size));
            bytes.squeeze();
            return bytes;
        }
    }
}

} // namespace portable
