// SPDX-License-Identifier: MIT
#include "portable/document/pagespool.h"

#include <QDir>
#include <QFileInfo>
#include <unistd.h>

#include <cerrno>
#include <cmath>

namespace portable {

namespace {

/**
 * Reads or writes all of `length` bytes.
 * \param move  is given the number of bytes done, and does more like pread and pwrite
 * \return false with a reason
 */
template <class Move> bool moveAll(qint64 length, Move move, QString *error)
{
    for (qint64 done = 0; done < length;) {
        const ssize_t count = move(done);
        if (count > 0) {
            done += count;
        } else if (count == 0 || errno != EINTR) {
            *error = QStringLiteral("the page store: ")
                + (count == 0 ? QStringLiteral("it is too short") : qt_error_string(errno));
            return false;
        }
    }
    return true;
}

} // namespace

std::size_t pageIndex(float number, std::size_t count)
{
    const bool place =
        number >= 2 && std::floor(number) == number && double(number) <= double(count);
    return place ? std::size_t(number) - 1 : count;
}

bool PageSpool::insert(std::size_t index, const PageImage &image, QString *error)
{
    if (!m_file && !open(error)) {
        return false;
    }
    const int file = m_file->handle();
    const qint64 length = image.bytes.size();
    const auto write = [&](qint64 done) {
        return ::pwrite(file, image.bytes.constData() + done, std::size_t(length - done),
                        m_end + done);
    };
    if (!moveAll(length, write, error)) {
        if (::ftruncate(file, m_end) != 0) {
            // Its space is not freed until the next page is written over it.
        }
        return false;
    }
    m_pages.insert(m_pages.begin() + std::ptrdiff_t(index), {image.page, m_end, length});
    m_end += length;
    return true;
}

bool PageSpool::read(const Entry &page, qint64 from, qint64 length, char *buffer,
                     QString *error) const
{
    const auto read = [&](qint64 done) {
        return ::pread(m_file->handle(), buffer + done, std::size_t(length - done),
                       page.offset + from + done);
    };
    return moveAll(length, read, error);
}

QString PageSpool::directory()
{
    const QString usual = QStringLiteral("/var/tmp");
    const QFileInfo info(usual);
    return qEnvironmentVariableIsEmpty("TMPDIR") && info.isDir() && info.isWritable()
        ? usual
        : QDir::tempPath();
}

QByteArray PageSpool::path() const
{
    return m_file ? "/proc/self/fd/" + QByteArray::number(m_file->handle()) : QByteArray();
}

bool PageSpool::open(QString *error)
{
    const QString folder = directory();
    auto file = std::make_unique<QTemporaryFile>(folder + QStringLiteral("/pages-XXXXXX"));
    if (!file->open()) { // calling fileName() would give it a name
        *error = QStringLiteral("pages can't be stored in %1: %2").arg(folder, file->errorString());
        return false;
    }
    m_file = std::move(file);
    return true;
}

} // namespace portable
