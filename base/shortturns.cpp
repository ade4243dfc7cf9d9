// SPDX-License-Identifier: MIT
#include "base/shortturns.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

namespace base {

namespace {

constexpr std::uint64_t turnNs = 200'000; // the kernel takes 0.1 to 100 ms
constexpr std::uint64_t resetOnFork = 1; // SCHED_FLAG_RESET_ON_FORK

/// struct sched_attr of linux/sched/types.h, which clashes with some versions of sched.h.
struct Attributes
{
    std::uint32_t size = sizeof(Attributes);
    std::uint32_t policy = 0;
    std::uint64_t flags = 0;
    std::int32_t nice = 0;
    std::uint32_t priority = 0;
    std::uint64_t runtime = 0; ///< Of an ordinary thread: its turn in nanoseconds.
    std::uint64_t deadline = 0;
    std::uint64_t period = 0;
};

} // namespace

void takeShortTurns(ShortTurns which)
{
    Attributes attributes;
    if (syscall(SYS_sched_getattr, 0, &attributes, sizeof attributes, 0) != 0) {
        return;
    }
    attributes.runtime = turnNs;
    attributes.flags = which == ShortTurns::OfThisThread ? resetOnFork : 0;
    // Refused for what has been made a real-time thread: it needs none.
    static_cast<void>(syscall(SYS_sched_setattr, 0, &attributes, 0));
}

} // namespace base
