// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace portable {

/**
 * Calls a listener from the main thread's event loop, after whatever goes on there now: in the
 * order of the calls, from any thread, and never while the process exits.
 */
void postToMainThread(std::function<void()> answer);

} // namespace portable
