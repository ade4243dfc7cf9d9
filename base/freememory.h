// SPDX-License-Identifier: MIT
#pragma once

namespace base {

/**
 * From now on gives free memory back to the system once a minute; without it glibc keeps between
 * the blocks in use what a burst of frames or clients needed. Once, on the main thread, after the
 * application object was made.
 */
void returnFreeMemory();

} // namespace base
