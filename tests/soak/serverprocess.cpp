// SPDX-License-Identifier: MIT
#include "tests/soak/serverprocess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

int entries(const fs::path &folder)
{
    std::error_code error;
    int count = 0;
    for (fs::directory_iterator i(folder, error), end; !error && i != end; i.increment(error)) {
        ++count;
    }
    return count;
}

} // namespace

ServerProcess::ServerProcess(const std::string &folder)
    : m_folder(folder)
{
    m_pid = fork();
    if (m_pid == 0) {
        const int output =
            open((folder + "/output.txt").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        if (chdir(folder.c_str()) == 0) {
            execl("./rvowebSocketServer", "./rvowebSocketServer", nullptr);
        }
        std::perror("can't start the server");
        _exit(127);
    }
}

ServerProcess::~ServerProcess()
{
    if (m_pid > 0) {
        kill(m_pid, SIGTERM);
        waitpid(m_pid, nullptr, 0);
    }
    killCompanions();
}

bool ServerProcess::isRunning()
{
    int status = 0;
    if (m_pid > 0 && waitpid(m_pid, &status, WNOHANG) == m_pid) {
        std::printf("the server ended: %s %d\n", WIFSIGNALED(status) ? "signal" : "status",
                    WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status));
        m_pid = -1;
    }
    return m_pid > 0;
}

Usage ServerProcess::usage() const
{
    Usage usage;
    const fs::path proc = "/proc/" + std::to_string(m_pid);
    std::ifstream status(proc / "status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("RssAnon:", 0) == 0) {
            usage.memoryMiB = std::atof(line.c_str() + 8) / 1024;
        } else if (line.rfind("Threads:", 0) == 0) {
            usage.threads = std::atoi(line.c_str() + 8);
        }
    }
    usage.descriptors = entries(proc / "fd");
    std::error_code error;
    for (fs::directory_iterator i(m_folder + "/log", error), end; !error && i != end;
         i.increment(error)) {
        std::error_code gone;
        const auto size = fs::file_size(i->path(), gone);
        usage.logBytes += gone ? 0 : std::int64_t(size);
    }
    return usage;
}

std::vector<std::string> ServerProcess::openFiles() const
{
    std::vector<std::string> files;
    std::error_code error;
    const fs::path folder = "/proc/" + std::to_string(m_pid) + "/fd";
    for (fs::directory_iterator i(folder, error), end; !error && i != end; i.increment(error)) {
        std::error_code gone;
        files.push_back(i->path().filename().string() + " "
                        + fs::read_symlink(i->path(), gone).string());
    }
    return files;
}

int ServerProcess::killCompanions() const
{
    int killed = 0;
    std::error_code error;
    for (fs::directory_iterator i("/proc", error), end; !error && i != end; i.increment(error)) {
        const int pid = std::atoi(i->path().filename().c_str());
        std::error_code unreadable;
        const fs::path program = fs::read_symlink(i->path() / "exe", unreadable);
        if (pid > 0 && pid != m_pid && !unreadable && program.parent_path() == fs::path(m_folder)) {
            killed += kill(pid, SIGKILL) == 0 ? 1 : 0;
        }
    }
    return killed;
}
