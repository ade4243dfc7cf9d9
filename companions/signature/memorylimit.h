// SPDX-License-Identifier: MIT
#pragma once

#include <sys/resource.h>

/**
 * Limits the memory of this process, and of the programs that it becomes or starts: allocations
 * beyond it fail. Nothing in builds with a sanitizer, which reserves more for itself.
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
