// SPDX-License-Identifier: MIT
#include "portable/document/documentbuilder.h"

#include "portable/base/atomicfile.h"
#include "portable/base/diskspace.h"
#include "portable/base/failure.h"
#include "portable/base/writecheck.h"

#include <QFile>

#include <climits>

namespace portable {

namespace {

/// The path of a document's file; empty, with a reason, when it can't be created.
QString placeOf(const char *directory, const char *name, const QString &extension, QString *error)
{
    const QString folder = pathOf(directory);
    QString file = pathOf(name);
    if (folder.isEmpty() || file.isEmpty() || file.endsWith(QLatin1Char('/'))) {
        *error = QStringLiteral("it needs a directory and the name of a file");
        return {};
    }
    if (!file.endsWith(extension, Qt::CaseInsensitive)) {
        file += extension;
    }
    if (QFile::encodeName(file.section(QLatin1Char('/'), -1)).size() > NAME_MAX) {
        *error = QStringLiteral("the name of the file is too long");
        return {};
    }
    // Checked before the first page, not only when everything has been scanned.
    const QString path = folder + QLatin1Char('/') + file;
    return canWriteFile(path, error) ? path : QString();
}

} // namespace

DocumentBuilder::DocumentBuilder(QString extension)
    : DocumentBuilder(std::move(extension), Limits())
{
}

DocumentBuilder::DocumentBuilder(QString extension, const Limits &limits)
    : m_extension(std::move(extension))
    , m_limits(limits)
{
}

/// Runs `body` with the document locked; no exception escapes.
template <class Body> bool DocumentBuilder::exclusively(const char *function, Body body)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return guarded(function, body);
}

bool DocumentBuilder::start(const char *function, const char *directory, const char *name,
                            Writer writer)
{
    return exclusively(function, [&] {
        QString error;
        const QString path = placeOf(directory, name, m_extension, &error);
        if (path.isEmpty()) {
            return logFailure(function, error);
        }
        if (m_work && !m_work->pages.pages().empty()) {
            const bool written = m_work->write(m_work->pages, m_work->path, &error);
            logFailure(function,
                       QStringLiteral("%1 was not ended; its %2 pages are %3")
                           .arg(m_work->path)
                           .arg(m_work->pages.pages().size())
                           .arg(written ? QStringLiteral("written now")
                                        : QStringLiteral("lost: ") + error));
        }
        m_work = std::make_unique<Work>();
        m_work->path = path;
        m_work->write = std::move(writer);
        return true;
    });
}

bool DocumentBuilder::addPage(const char *function, const PageMaker &make, float number)
{
    return exclusively(function, [&] {
        if (!m_work) {
            return logFailure(function, QStringLiteral("no document was started"));
        }
        QString error;
        PageSpool &pages = m_work->pages;
        const std::optional<PageImage> image = make(&error);
        if (image && mayAdd(*image, &error)
            && pages.insert(pageIndex(number, pages.pages().size()), *image, &error)) {
            return true;
        }
        return !error.isEmpty() && logFailure(function, error);
    });
}

/// Whether the document stays within its limits, and can still be written, with this page.
bool DocumentBuilder::mayAdd(const PageImage &image, QString *error) const
{
    const PageSpool &pages = m_work->pages;
    const qint64 bytes = pages.bytes() + image.bytes.size();
    if (qint64(pages.pages().size()) >= m_limits.pages) {
        return setError(
            QStringLiteral("%1: more than %2 pages").arg(m_work->path).arg(m_limits.pages), error);
    }
    if (bytes > m_limits.bytes) {
        return setError(QStringLiteral("%1: its pages have more than %2 MB")
                            .arg(m_work->path)
                            .arg(m_limits.bytes / limits::mebi),
                        error);
    }
    // The end writes all of them a second time.
    const QString spool = PageSpool::directory();
    const qint64 spooled = image.bytes.size();
    return hasRoomFor(areOnOneDisk(spool, m_work->path) ? spooled + bytes : spooled, spool, error)
        && (hasRoomFor(bytes, m_work->path, error) || prefixError(m_work->path, error));
}

bool DocumentBuilder::end(const char *function)
{
    return exclusively(function, [&] {
        if (!m_work) {
            return logFailure(function, QStringLiteral("no document was started"));
        }
        QString error;
        if (m_work->pages.pages().empty()) {
            error = m_work->path + QStringLiteral(": not written, as it has no page");
        } else if (!m_work->write(m_work->pages, m_work->path, &error)) {
            return logFailure(function, error);
        }
        m_work.reset();
        return error.isEmpty() || logFailure(function, error);
    });
}

} // namespace portable
