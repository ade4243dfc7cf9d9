// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/resolution.h"

#include <QByteArray>
#include <QString>
#include <QTemporaryFile>
#include <opencv2/core.hpp>

#include <memory>
#include <vector>

namespace portable {

enum class Encoding {
    Jpeg, ///< A JPEG file.
    Png, ///< A PNG file.
    Group4, ///< As group4Data() returns it.
    Bgr ///< Rows of 8-bit BGR without padding.
};

/// A page without its bytes.
struct Page
{
    Encoding encoding = Encoding::Jpeg;
    cv::Size size; ///< In pixels.
    Dpi dpi;
    bool isGrey = false; ///< A JPEG of one component.
};

/// A page with its bytes.
struct PageImage
{
    Page page;
    QByteArray bytes;
};

/**
 * The index at which a new page is inserted among `count` pages.
 * \param number  as a counter page gives it: a whole number from 2 to `count` is the page's number,
 *                counted from 1; any other value appends
 */
std::size_t pageIndex(float number, std::size_t count);

/**
 * The pages of a document in order, on disk: however many there are, only one is in memory at a
 * time. The disk space is freed with the object and, on file systems that support files without a
 * name (on Linux all usual ones), also when the process is killed.
 *
 * The file is in $TMPDIR if set, otherwise in /var/tmp, as /tmp may be in memory.
 */
class PageSpool
{
public:
    PageSpool() = default;
    PageSpool(const PageSpool &) = delete;
    PageSpool &operator=(const PageSpool &) = delete;

    /// A page and the place of its bytes in the spool's file.
    struct Entry
    {
        Page page;
        qint64 offset = 0;
        qint64 length = 0;
    };

    /// \return false with a reason when it can't be written; the pages are unchanged then
    bool insert(std::size_t index, const PageImage &image, QString *error);

    const std::vector<Entry> &pages() const { return m_pages; }

    /// Reads `length` bytes of a page from its byte `from` on. \return false with a reason
    bool read(const Entry &page, qint64 from, qint64 length, char *buffer, QString *error) const;

    /// Of all pages.
    qint64 bytes() const { return m_end; }

    /// Where spools are.
    static QString directory();

    /// A path by which this process can open the spool's file; empty before the first page.
    QByteArray path() const;

private:
    bool open(QString *error);

    std::unique_ptr<QTemporaryFile> m_file; // created with the first page
    qint64 m_end = 0;
    std::vector<Entry> m_pages;
};

} // namespace portable
