// SPDX-License-Identifier: MIT
#pragma once

#include <sys/resource.h>

/**
 * Limits the memory of this process and of the programs it runs: allocations beyond it fail. Does
 * nothing in sanitizer builds, which reserve more than that.
 */
inline void limitMemory(rlim_t bytes)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    (void)bytes;
#else
    const rlimit limit{bytes, bytes};
    setrlimit(RLIMIT_DATA, &limit);
#endif
}
