// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// Where the files of the server are.
struct Places
{
    QString program; ///< folder of the programs and libraries
    QString data; ///< folder of server.ini, devices.ini, cards/, fingers/
    QString log; ///< folder of the log
    QString ownPolicy; ///< path of the access.ini that counts if the system has none
    QString systemPolicy = QStringLiteral("/etc/rvowebsocketserver/access.ini");
};

/**
 * The places of a server that runs, else those of an installed or built one.
 * \param programFolder  where the server says it is; empty: it doesn't run
 * \param logFolder      of its log, as it says; empty: unknown
 */
Places findPlaces(const QString &programFolder, const QString &logFolder);
