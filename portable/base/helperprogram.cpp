// SPDX-License-Identifier: MIT
#include "portable/base/helperprogram.h"

#include "portable/base/module.h"

#include <QFile>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>

namespace portable {

namespace {

/// \return an error number, 0 for none
int start(const QByteArray &path, int standardInput, int standardOutput, pid_t *process)
{
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (standardInput >= 0) {
        posix_spawn_file_actions_adddup2(&actions, standardInput, STDIN_FILENO);
    }
    if (standardOutput >= 0) {
        posix_spawn_file_actions_adddup2(&actions, standardOutput, STDOUT_FILENO);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none); // threads of the server block some
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    QByteArray name = path;
    char *arguments[] = {name.data(), nullptr};
    const int error =
        posix_spawn(process, path.constData(), &actions, &attributes, arguments, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

} // namespace

HelperProgram::HelperProgram(const char *name, int standardInput, int standardOutput)
{
    const QByteArray path = QFile::encodeName(besideLibrary(QString::fromLatin1(name)));
    const int error = start(path, standardInput, standardOutput, &m_process);
    if (error != 0) {
        throw std::runtime_error(path.toStdString() + ": " + std::strerror(error));
    }
}

HelperProgram::~HelperProgram()
{
    end();
}

QString HelperProgram::end()
{
    if (m_process == 0) {
        return {};
    }
    int status = 0;
    ::kill(m_process, SIGKILL); // changes nothing for one that has ended
    while (::waitpid(m_process, &status, 0) < 0 && errno == EINTR) { }
    m_process = 0;
    return WIFSIGNALED(status) ? QStringLiteral("signal %1 (%2)")
                                     .arg(WTERMSIG(status))
                                     .arg(QString::fromLocal8Bit(::strsignal(WTERMSIG(status))))
                               : QStringLiteral("exit code %1").arg(WEXITSTATUS(status));
}

} // namespace portable
