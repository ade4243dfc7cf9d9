// SPDX-License-Identifier: MIT
#pragma once

#include "companions/signature/ink.h"

#include <QByteArray>
#include <QRectF>
#include <QSizeF>
#include <QTransform>

#include <memory>

/**
 * A PDF in memory that can be signed. Parsed strictly: nothing can be appended to a file that needs
 * repair to be read.
 */
class PdfDocument
{
public:
    /// \throws SigningFailure  Encrypted, Broken
    explicit PdfDocument(const QByteArray &bytes);
    ~PdfDocument();
    PdfDocument(const PdfDocument &) = delete;
    PdfDocument &operator=(const PdfDocument &) = delete;

    int pageCount() const;

    /**
     * The size of a page as viewers show it, that of its rotated crop box, in points.
     * \param page  from 1
     * \throws SigningFailure  Place if there is no such page, Broken if it has no usable box
     */
    QSizeF pageSize(int page) const;

    /**
     * The document with ink on a page: the original's bytes, followed by an incremental update that
     * adds the strokes to the page's content as paths.
     *
     * \param page   from 1
     * \param place  where the pad's area goes, in points from the lower left corner of the
     *               page as shown; y points up, top() is the lower edge
     * \throws SigningFailure  as pageSize, and Broken if the result can't be read back
     */
    QByteArray withInk(int page, const QRectF &place, const Ink &ink) const;

private:
    struct Parsed;

    const QByteArray m_bytes;
    const std::unique_ptr<Parsed> m_parsed;
};
