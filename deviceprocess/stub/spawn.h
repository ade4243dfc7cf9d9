// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <sys/types.h>

#include <vector>

namespace deviceprocess {

/// Moves a descriptor to a number above those that spawnHost() fills. \return false with errno set
bool moveUp(int *descriptor);

/**
 * Starts the program with `control` and `events` as descriptors 3 and 4, in a process group of its
 * own, so that its children end with it. Its name on the process list is "devicehost" alone: the
 * server's own name in a path would count as a second server.
 *
 * \param furtherEnvironment  "NAME=value" each, besides this process's own
 * \return 0, or the number of the error
 */
int spawnHost(const QByteArray &program, const std::vector<QByteArray> &furtherEnvironment,
              int control, int events, pid_t *pid);

} // namespace deviceprocess
