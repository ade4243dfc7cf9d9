// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace base {

/**
 * From now on gives free memory back to the system once a minute; without it glibc keeps between
 * the blocks in use what a burst of frames or clients needed. Once, on the main thread, after the
 * application object was made.
 * \param further  gives back what else there is, before; on the main thread
 */
void returnFreeMemory(const std::function<void()> &further = [] {});

} // namespace base
