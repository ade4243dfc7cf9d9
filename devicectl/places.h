// SPDX-License-Identifier: MIT
#pragma once

#include "base/datafolder.h"

class QJsonObject;
#include <QString>

/// Where the files of the server are.
struct Places
{
    base::DataPlaces files; ///< settings and data
    QString log; ///< folder of the log
};

/**
 * The places of the server that answers, or else those of one that is started now by this user: the
 * one next to devicectl, as in a build, or the installed one.
 * \param folders  the member "folders" of the server's status; empty: it doesn't answer
 */
Places findPlaces(const QJsonObject &folders);
