// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QRectF>
#include <QString>

/// What the server asks for.
struct SigningRequest
{
    static constexpr double usualAspect = 2.5; ///< width : height of a place without a height

    QString pdfPath; ///< as it came; a relative one is relative to the program's folder
    QString xmlPath; ///< may be empty
    int page = 0; ///< from 1
    QRectF place; ///< on the page as shown, in points from its lower left; top() is the lower edge
    bool retain = false; ///< keep the strokes and their picture
    int timeoutSeconds = 0; ///< 0: none
    bool wholeDocument = false; ///< the customer may leaf through all pages

    /// The pad's width : height: the place's, as far as a hand can sign on it.
    double padAspect() const;

    /// The part of the place that the pad's area comes to lie on: all of it, mostly.
    QRectF inkPlace() const;

    /**
     * \param type  1 or 2, of the request's frame
     * \throws SigningFailure  BadRequest
     */
    static SigningRequest fromJson(int type, const QByteArray &json);
};
