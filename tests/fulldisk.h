// SPDX-License-Identifier: MIT
/// \file Disks that are full for the library or the log. Include it in one file of a program: it
/// defines the function by which the library asks for free space.
#pragma once

#include <dlfcn.h>
#include <sys/statvfs.h>

#include <atomic>

/// While it lives, every disk has this much free space.
class FullDisk
{
public:
    explicit FullDisk(long long freeBytes) { s_free = freeBytes; }
    ~FullDisk() { s_free = -1; }
    FullDisk(const FullDisk &) = delete;
    FullDisk &operator=(const FullDisk &) = delete;

    static inline std::atomic<long long> s_free{-1};
};

// NOLINTNEXTLINE: that of the system
extern "C" int statvfs(const char *path, struct statvfs *disk) noexcept
{
    using Function = int (*)(const char *, struct statvfs *);
    static const auto original = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "statvfs"));
    const int code = original(path, disk);
    const long long free = FullDisk::s_free;
    if (free >= 0) {
        disk->f_frsize = 4096;
        disk->f_blocks = 1 << 24; // 64 GiB
        disk->f_bavail = fsblkcnt_t(free / 4096);
    }
    return code;
}
