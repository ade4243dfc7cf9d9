// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <sys/types.h>

namespace portable {

/**
 * A program of this library that runs as a process of its own, for what could crash, hang or bring
 * many libraries along. It lies in the folder of this library, and ends with the object. One thread
 * uses an object at a time.
 */
class HelperProgram
{
public:
    /**
     * Starts it. Throws std::runtime_error when that fails.
     * \param standardInput   its standard input; -1: that of this process
     * \param standardOutput  the same for its output
     */
    HelperProgram(const char *name, int standardInput, int standardOutput);
    ~HelperProgram();
    HelperProgram(const HelperProgram &) = delete;
    HelperProgram &operator=(const HelperProgram &) = delete;

    /// Ends it, if it still runs, and says how it ended: "signal 6 (Aborted)".
    QString end();

private:
    pid_t m_process = 0; // 0 once it is reaped
};

} // namespace portable
