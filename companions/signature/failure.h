// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// Why nothing was signed: thrown, and told in the reply.
struct SigningFailure
{
    /// The reply's "code"; pages know the numbers.
    enum Code {
        BadRequest = 10, ///< the request can't be understood
        NoDocument = 11, ///< the PDF can't be read
        Encrypted = 12,
        Broken = 13, ///< no PDF, or one that only a repair could read
        Place = 14, ///< no such page, or the rectangle is not on it
        NoDisplay = 15,
        NotShown = 16, ///< the page can't be drawn
        NotWritten = 17, ///< the signed document or what belongs to it can't be written
    };

    Code code;
    QString message; ///< for a technician, in English
};
