// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// Why nothing was signed. Thrown; the reply passes it on.
struct SigningFailure
{
    /// The reply's "code". Pages rely on the numbers.
    enum Code {
        BadRequest = 10, ///< the request can't be understood
        NoDocument = 11, ///< the PDF can't be read
        Encrypted = 12,
        Broken = 13, ///< not a PDF, or a damaged one
        Place = 14, ///< no such page, or the rectangle is not on it
        NoDisplay = 15,
        NotShown = 16, ///< the page can't be rendered
        NotWritten = 17, ///< the signed document or a file that goes with it can't be written
    };

    Code code;
    QString message; ///< for a technician, in English
};
