// SPDX-License-Identifier: MIT
#pragma once

#include "access/policyparser.h"

#include <QString>
#include <QStringList>
#include <sys/types.h>

#include <memory>
#include <optional>

namespace accesspolicy {

/// Where a policy is looked for; set by start-up and by tests. No page can change it, and the
/// environment only that of the user's own, which counts where there is no system's.
struct PolicyPlaces
{
    /// Those of a server. \param program  its folder  \param data  its data folder
    static PolicyPlaces of(const QString &program, const QString &data);

    QString system = QStringLiteral("/etc/rvowebsocketserver/access.ini");
    uid_t systemOwner = 0; ///< who alone may be able to write it, and to replace it
    QString own; ///< taken if there is no system's; belongs to root or this user
    QStringList ownFolders; ///< of the program, its data and its log: no policy opens them
};

/// A policy, none, or a file that is none.
struct FoundPolicy
{
    std::shared_ptr<const Policy> policy;
    std::optional<PolicyError> error;
};

/// Reads the first of the places that exists. Both members are empty if there is none.
FoundPolicy findPolicy(const PolicyPlaces &places);

} // namespace accesspolicy
