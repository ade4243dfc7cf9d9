// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

/// How many processes of this program run.
struct InstanceCount
{
    QByteArray line; ///< what the pipeline printed, trimmed
    long count = 0; ///< including this process; 0 if unknown

    bool anotherRuns() const { return count > 1; }
};

/**
 * Counts the processes of this program with a shell pipeline over `ps -ef`. The pipeline runs with
 * an empty LD_LIBRARY_PATH, since vendor libraries must not be loaded into ps; the variable is
 * restored afterwards.
 *
 * Command lines that contain "sh" are not counted: they are the shells that start the program.
 */
InstanceCount countInstances();
