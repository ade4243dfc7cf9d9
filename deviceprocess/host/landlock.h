// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

namespace deviceprocess {

/**
 * Restricts this process, and those it starts, to the folders of an access policy, besides what any
 * device library needs: the system's folders, its own and the temporary one, devices. By Landlock
 * (landlock(7), Linux 5.13); where the kernel doesn't have it, a log line says so. Only the calling
 * thread, and those that it starts, are restricted.
 * \param folders  one a line: "r /path", "w /path" or "d /path"
 */
void restrictFolders(const QByteArray &folders);

} // namespace deviceprocess
