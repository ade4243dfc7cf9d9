// SPDX-License-Identifier: MIT
//
// Linked into every program and shared library of a mutated build. The environment variable MUTANT
// names the fault to switch on; MUTANT_COVERAGE names a file that has a byte for each fault, set to
// 1 when its place is reached. The file is mapped, so a crash loses nothing and child programs
// write to the same one.
#include "mutant.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

int mutant_active = 0;

static char *reached = nullptr;
static off_t reachable = 0;

int mutant_record(int number)
{
    if (number < reachable) {
        reached[number] = 1;
    }
    return 0;
}

__attribute__((constructor(101))) static void start()
{
    if (const char *file = std::getenv("MUTANT_COVERAGE")) {
        const int descriptor = open(file, O_RDWR | O_CLOEXEC);
        reachable = descriptor < 0 ? 0 : lseek(descriptor, 0, SEEK_END);
        void *const bytes = reachable <= 0
            ? MAP_FAILED
            : mmap(nullptr, size_t(reachable), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
        if (bytes == MAP_FAILED) {
            std::abort(); // a run without its coverage would count as one that reaches nothing
        }
        close(descriptor);
        reached = static_cast<char *>(bytes);
        mutant_active = -1;
    } else if (const char *number = std::getenv("MUTANT")) {
        mutant_active = std::atoi(number);
    }
}
