// SPDX-License-Identifier: MIT
#pragma once

#include "companions/signature/ink.h"

#include <QByteArray>
#include <QRectF>
#include <QSizeF>
#include <QTransform>

#include <memory>

/**
 * A PDF in memory that can be signed. It is read as strictly as can be: a file that only a repair
 * makes readable can't be appended to.
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
     * The size of a page as viewers show it: its crop box, turned. In points.
     * \param page  from 1
     * \throws SigningFailure  Place without such a page, Broken without a usable box
     */
    QSizeF pageSize(int page) const;

    /**
     * The document with ink on a page: the original's bytes, followed by an incremental update that
     * adds the strokes to the page's content as paths.
     *
     * \param page   from 1
     * \param place  where the pad's area comes to lie, in points from the lower left corner of the
     *               page as shown; y points upwards, top() is the lower edge
     * \throws SigningFailure  as pageSize, and Broken when the result can't be read back
     */
    QByteArray withInk(int page, const QRectF &place, const Ink &ink) const;

private:
    struct Parsed;

    const QByteArray m_bytes;
    const std::unique_ptr<Parsed> m_parsed;
};
