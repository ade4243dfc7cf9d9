// SPDX-License-Identifier: MIT
#pragma once

#include "access/origin.h"
#include "access/pathrules.h"

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QString>
#include <QStringList>

#include <vector>

namespace accesspolicy {

/// A [grant.NAME]: what pages of its origins may do.
struct Grant
{
    /// What is decided about a command, a relayed text or the page data.
    enum class Ruling { NotAllowed, Allowed, Denied };

    QString name; ///< "grant.counter"
    OriginPatterns origins;
    std::vector<Ruling> commands; ///< by their index in the command list
    Ruling relay = Ruling::NotAllowed; ///< texts with "#"
    Ruling pageData = Ruling::NotAllowed; ///< texts with "@"
    int originLine = 0;
    int allowLine = 0;
    int denyLine = 0;
};

/// An access policy as it is in its file; the defaults are those of a file without the key.
struct Policy
{
    enum class Mode { Off, Report, Enforce };
    enum class Leaving { Any, Owner }; ///< whose leaving stops the preview

    QString file; ///< its path
    Mode mode = Mode::Enforce;

    bool listensEverywhere = false;
    bool listensOnLoopback = true;
    QList<QHostAddress> listenAddresses; ///< besides

    bool hasOrigins = false; ///< whether the file has them; if not, those of the grants count
    OriginPatterns origins;
    std::vector<HostAndPort> hosts;

    bool isTokenRequired = false;
    QString tokenFile;
    QByteArray token;

    std::vector<Grant> grants;
    PathRules paths;

    OriginPatterns uploadHosts;
    int uploadMiB = 64;

    OriginPatterns pageAddresses;
    bool showsOwnPages = true;

    int clients = 16;
    int clientsPerOrigin = 4;
    int messageKiB = 32768;
    int commandsPerSecond = 50;
    int pendingReplyMiB = 64;
    int companionWaitSeconds = 60;

    Leaving stopOnLeave = Leaving::Any;

    bool hidesPersonal = true;
    int logChars = 512;
    int logMiB = 1024;

    QString auditFile; ///< empty: none is written
    int auditMiB = 20;
    int auditKeep = 10;
    bool isAuditChained = true;

    /// Line of a key in the file, of its section if the key isn't there; 0: neither is.
    int lineOf(const QString &key) const;
    QHash<QString, int> lines; ///< by "section.key" and "section"
};

} // namespace accesspolicy
