// SPDX-License-Identifier: MIT
#pragma once

#include <sys/resource.h>

/// Whether limitMemory() does anything: sanitizers reserve more memory than any limit.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool canLimitMemory = false;
#else
constexpr bool canLimitMemory = true;
#endif

/// Limits the memory of this process and of the programs it runs: allocations beyond it fail.
inline void limitMemory(rlim_t bytes)
{
    if (canLimitMemory) {
        const rlimit limit{bytes, bytes};
        setrlimit(RLIMIT_DATA, &limit);
    }
}
