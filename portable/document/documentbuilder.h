// SPDX-License-Identifier: MIT
#pragma once

#include "portable/base/inputlimits.h"
#include "portable/document/pagespool.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace portable {

/**
 * Builds documents of one kind, one at a time: collects the pages on disk and writes the file at
 * the end; before that there is nothing under its final name. Each failure is one line in the log
 * and changes nothing.
 *
 * Callable from any thread; calls are serialized.
 */
class DocumentBuilder
{
public:
    /// Writes the pages, at least one. \return false with a reason that names the path
    using Writer = std::function<bool(const PageSpool &pages, const QString &path, QString *error)>;

    /// Makes a page. \return nullopt, with a reason unless it was logged already
    using PageMaker = std::function<std::optional<PageImage>(QString *error)>;

    /// A page that would exceed these is refused; those before it are kept.
    struct Limits
    {
        int pages = limits::documentPages;
        qint64 bytes = limits::documentBytes; ///< Of the pages as they are stored.
    };

    /// \param extension  of its files: ".pdf"
    explicit DocumentBuilder(QString extension);
    DocumentBuilder(QString extension, const Limits &limits);

    // `function` is the exported function that the log names on failure.

    /**
     * Starts a document. An unfinished one is ended first, as by end(); when it can't be written,
     * its pages are lost.
     * \param directory  UTF-8; created at the end when it is missing
     * \param name       UTF-8; the extension is appended unless present
     * \return false, with nothing started or ended, when the file can't be created there
     */
    bool start(const char *function, const char *directory, const char *name, Writer writer);

    /**
     * Adds a page, unless the document has too many or the disk has too little room left for them
     * and for the document.
     * \param make    called only when a document was started
     * \param number  see pageIndex()
     */
    bool addPage(const char *function, const PageMaker &make, float number = -1);

    /**
     * Writes the document.
     * \return false when none was started or it has no page, which discards it; also false when it
     * can't be written: then it is kept, and end() may be called again
     */
    bool end(const char *function);

private:
    struct Work
    {
        QString path;
        Writer write;
        PageSpool pages;
    };

    template <class Body> bool exclusively(const char *function, Body body);

    bool mayAdd(const PageImage &image, QString *error) const;

    const QString m_extension;
    const Limits m_limits;
    std::mutex m_mutex;
    std::unique_ptr<Work> m_work; // guarded by m_mutex; null when none was started
};

} // namespace portable
