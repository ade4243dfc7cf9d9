// SPDX-License-Identifier: MIT
/// \file Keeping other users of the machine out of local sockets and shared folders.
#pragma once

#include <QString>
#include <sys/types.h>

namespace base {

/// "teller (uid 1000)"; just "uid 1000" for a user without a name.
QString userText(uid_t user);

/**
 * Why the program at the other end of a connected local socket must not be trusted: it belongs to
 * another user than this one, or that can't be found out (SO_PEERCRED, see unix(7)).
 * \param socket  its descriptor
 * \return empty if it is this user's
 */
QString peerProblem(qintptr socket);

/**
 * Why a file that others could have put in its place must not be used: it belongs to another user,
 * or its folder to another one than this user and root. Says who it is. A symbolic link at the end
 * of the path is not followed.
 * \return empty if it is this user's or doesn't exist yet
 */
QString squatterProblem(const QString &path);

/// Path of the local socket with this name, as QLocalServer and QLocalSocket determine it.
QString localSocketPath(const QString &name);

/// For tests: takes `user` for the one that runs this program.
void setOwnUser(uid_t user);
/// The effective user of this process, unless a test has set another one.
uid_t ownUser();

} // namespace base
