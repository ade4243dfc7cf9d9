// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace base {

/**
 * Runs a task from the main thread's event loop, never within this call. Any thread.
 *
 * Tasks run one at a time, in the order in which they were posted. Those still waiting when the
 * event loop ends never run, nor do those posted while there is no QCoreApplication: no task runs
 * while the process exits.
 */
void postToMainThread(std::function<void()> task);

} // namespace base
