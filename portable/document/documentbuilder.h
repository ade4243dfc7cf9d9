// SPDX-License-Identifier: MIT
#pragma once

#include "portable/document/pagespool.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

namespace portable {

/**
 * A document of one kind on its way from start to end: the place that it goes to and its pages, on
 * disk. Until the end nothing stands under its final name. One is under way at a time; each failure
 * is a line in the log, and what was there stays as it was.
 *
 * Callable from any thread; one call waits for another.
 */
class DocumentBuilder
{
public:
    /// Writes the pages, at least one. \return false with a reason that names the path
    using Writer = std::function<bool(const PageSpool &pages, const QString &path, QString *error)>;

    /// Makes a page. \return none, with a reason for the log unless it is there already
    using PageMaker = std::function<std::optional<PageImage>(QString *error)>;

    /// \param extension  of its files: ".pdf"
    explicit DocumentBuilder(QString extension);

    // `function` is what the log names when it fails.

    /**
     * Begins a document. One that is under way is ended first, as by end(); when it can't be
     * written its pages are lost.
     * \param directory  UTF-8; made at the end when it is missing
     * \param name       UTF-8; gets the extension unless it has it
     * \return false, with nothing begun or ended, when nothing could be written there
     */
    bool start(const char *function, const char *directory, const char *name, Writer writer);

    /**
     * Adds a page.
     * \param make    called only with a document under way
     * \param number  see pageIndex()
     */
    bool addPage(const char *function, const PageMaker &make, float number = -1);

    /**
     * Writes the document.
     * \return false without one, or without a page, when nothing is written and nothing remains
     * under way; false when it can't be written: then it stays under way, and may be ended again
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

    const QString m_extension;
    std::mutex m_mutex;
    std::unique_ptr<Work> m_work; // guarded by m_mutex; null while none is under way
};

} // namespace portable
