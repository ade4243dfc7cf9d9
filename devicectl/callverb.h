// SPDX-License-Identifier: MIT
#pragma once

#include "devicectl/environment.h"
#include "devicectl/exitcode.h"

#include <QString>
#include <QTextStream>

/// The command line of `devicectl call`.
struct Call
{
    QString before; ///< a command that is answered first, "name(arguments)"; empty: none
    QString text; ///< "name(arguments)"
    QString name;
    quint16 port = 1818;
    QString origin; ///< of the page that it plays; empty: a program's, which has none
    QString token; ///< of an access policy; empty: none
    int answerSeconds = 30; ///< for the answer
    int waitSeconds = 0; ///< and for what is pushed after it
    QString until; ///< name of the answer that ends the waiting; empty: none does
    QString pictureFile; ///< gets the answer's bytes; empty: it is printed
    QString frameFile; ///< gets the next preview frame; empty: frames are ignored
    int countSeconds =
        0; ///< preview frames are counted for so long, from the first one; 0: they aren't
    bool isJson = false;
};

/// Connects, sends the command, prints its answer and what is pushed, one line each.
ExitCode carryOut(const Call &call, QTextStream &out, QTextStream &error);

/// Starts the preview as a page that only counts its frames, for two seconds.
Environment::MeasuredPreview measurePreview(const QString &origin, const QString &token,
                                            quint16 port = 1818);
