// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

/// What a process and its log use at one moment.
struct Usage
{
    double memoryMiB =
        0; ///< Private and resident: not libraries, not pictures of the device process.
    int descriptors = 0;
    int threads = 0;
    std::int64_t logBytes = 0;
};

/// The server under test, in a folder of its own that holds the program and its files.
class ServerProcess
{
public:
    /// Starts FOLDER/rvowebSocketServer; its standard output goes to FOLDER/output.txt.
    explicit ServerProcess(const std::string &folder);

    /// Ends the server.
    ~ServerProcess();
    ServerProcess(const ServerProcess &) = delete;
    ServerProcess &operator=(const ServerProcess &) = delete;

    /// Whether it runs; reaps it, and says why it ended, when it doesn't any more.
    bool isRunning();

    Usage usage() const;

    /// What its descriptors refer to, as in /proc: "socket:[1234]".
    std::vector<std::string> openFiles() const;

    /// Kills the programs of the folder other than the server. \return how many there were
    int killCompanions() const;

private:
    std::string m_folder;
    pid_t m_pid = -1;
};
