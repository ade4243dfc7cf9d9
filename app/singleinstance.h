// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <cstdio>

/// How many processes of this program run.
struct InstanceCount
{
    QByteArray line; ///< what the pipeline printed, trimmed
    long count = 0; ///< including this process; 0 if unknown

    bool anotherRuns() const { return count > 1; }
};

/**
 * Counts the processes of this program, beside what the caller does meanwhile, with a shell
 * pipeline over `ps -ef`. The pipeline runs with an empty LD_LIBRARY_PATH, since vendor libraries
 * must not be loaded into ps; the variable is restored afterwards.
 *
 * Command lines that contain "sh" are not counted: they are the shells that start the program.
 *
 * A process that this one is just starting looks like this one.
 */
class InstanceCounting
{
public:
    InstanceCounting();
    ~InstanceCounting();
    InstanceCounting(const InstanceCounting &) = delete;
    InstanceCounting &operator=(const InstanceCounting &) = delete;

    /// Waits for the end of the pipeline. Once.
    InstanceCount result();

private:
    std::FILE *m_pipe;
};
