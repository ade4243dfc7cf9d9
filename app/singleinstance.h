// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

/// What the process list said.
struct InstanceCount
{
    QByteArray line; ///< the line as it was read, without its line end
    long count = 0; ///< processes of this program, this one included; 0 when it can't be told

    bool anotherRuns() const { return count > 1; }
};

/**
 * Counts the processes of this program by a shell pipeline over `ps -ef`. The pipeline runs with
 * an empty LD_LIBRARY_PATH (a makers' libraries must not get into the system's tools); the
 * program's own value is the same afterwards.
 *
 * A command line that holds "sh" anywhere is not counted: shells that start the program.
 */
InstanceCount countInstances();
