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
    Jpeg, ///< a JPEG file
    Png, ///< a PNG file
    Group4, ///< what group4Data() makes
    Bgr ///< rows of 8-bit BGR, nothing between them
};

/// What a page is, apart from its bytes.
struct Page
{
    Encoding encoding = Encoding::Jpeg;
    cv::Size size; ///< In pixels.
    Dpi dpi;
    bool grey = false; ///< A JPEG of one component.
};

/// A page with its bytes.
struct PageImage
{
    Page page;
    QByteArray bytes;
};

/**
 * The index at which a page goes in a list of `count`.
 * \param number  as pages give it: a whole number from 2 on is the page's own number, counted from
 *                1; any other, and one beyond the end, appends
 */
std::size_t pageIndex(float number, std::size_t count);

/**
 * The pages of a document in their order, on disk: a document takes the memory of one page, however
 * many it has. The disk space is freed with the object; where the file system has files without a
 * name (on Linux all usual ones), also when the process is killed.
 *
 * It lies where $TMPDIR says, or else in /var/tmp, for /tmp may be memory.
 */
class PageSpool
{
public:
    PageSpool() = default;
    PageSpool(const PageSpool &) = delete;
    PageSpool &operator=(const PageSpool &) = delete;

    /// A page and where its bytes lie in the spool's file.
    struct Entry
    {
        Page page;
        qint64 offset = 0;
        qint64 length = 0;
    };

    /// \return false, with the pages as they were and a reason, when the disk doesn't take it
    bool insert(std::size_t index, const PageImage &image, QString *error);

    const std::vector<Entry> &pages() const { return m_pages; }

    /// Fills `buffer` with `length` bytes of a page, from its byte `from` on.
    bool read(const Entry &page, qint64 from, qint64 length, char *buffer, QString *error) const;

    /// The spool's file under a path that this process can open; empty before the first page.
    QByteArray path() const;

private:
    bool open(QString *error);

    std::unique_ptr<QTemporaryFile> m_file; // made with the first page
    qint64 m_end = 0;
    std::vector<Entry> m_pages;
};

} // namespace portable
