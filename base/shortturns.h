// SPDX-License-Identifier: MIT
#pragma once

namespace base {

/// Whether what the calling thread starts takes short turns as well.
enum class ShortTurns { OfThisThread, AlsoOfItsChildren };

/**
 * Has the scheduler run the calling thread for at most 0.2 ms at a time while others of the same
 * priority wait, and in return as soon as it has something to do. Usually a turn lasts 3 ms: that
 * long a command waits behind the compression of a frame when there is no processor free. The
 * thread's share of the processor stays the same.
 *
 * Linux has this for ordinary threads since 6.12; earlier ones ignore it.
 */
void takeShortTurns(ShortTurns which);

} // namespace base
