// SPDX-License-Identifier: MIT
#include "deviceprocess/stub/spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <csignal>

namespace deviceprocess {

namespace {

constexpr int lowestDescriptor = 10; ///< Ours are above those that the process gets as 3 and 4.

} // namespace

bool moveUp(int *descriptor)
{
    const int moved = fcntl(*descriptor, F_DUPFD_CLOEXEC, lowestDescriptor);
    close(*descriptor);
    *descriptor = moved;
    return moved >= 0;
}

int spawnHost(const QByteArray &program, const std::vector<QByteArray> &furtherEnvironment,
              int control, int events, pid_t *pid)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, control, 3);
    posix_spawn_file_actions_adddup2(&actions, events, 4);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    char name[] = "devicehost";
    char *const arguments[] = {name, nullptr};
    std::vector<char *> variables;
    for (char **variable = environ; *variable; ++variable) {
        variables.push_back(*variable);
    }
    for (const QByteArray &variable : furtherEnvironment) {
        variables.push_back(const_cast<char *>(variable.constData()));
    }
    variables.push_back(nullptr);
    const int error =
        posix_spawn(pid, program.constData(), &actions, &attributes, arguments, variables.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

} // namespace deviceprocess
