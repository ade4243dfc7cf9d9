// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QRectF>
#include <QString>

/// A request of the server.
struct SigningRequest
{
    static constexpr double defaultAspect =
        2.5; ///< width : height of a place given without a height

    QString pdfPath; ///< as received; relative to the program's folder
    QString xmlPath; ///< may be empty
    int page = 0; ///< from 1
    QRectF place; ///< on the page as shown, in points from its lower left; top() is the lower edge
    bool retain = false; ///< keep the strokes and their picture
    int timeoutSeconds = 0; ///< 0: no limit
    bool wholeDocument = false; ///< the customer can turn to every page

    /// Width : height of the pad: that of the place, within what a hand can sign on.
    double padAspect() const;

    /// The part of the place that the pad covers, usually all of it.
    QRectF inkPlace() const;

    /**
     * Takes over a request of the server.
     * \param type  1 or 2, of the request's frame
     * \throws SigningFailure  BadRequest; what was read before the fault, such as pdfPath, is kept
     */
    void read(int type, const QByteArray &json);
};
