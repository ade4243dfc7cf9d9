// SPDX-License-Identifier: MIT
/// \file Keeps exceptions of the device library from ending the server.
#pragma once

#include <QString>

/// Logs the exception that is being handled: one line with the command. For a catch block.
void logException(const QString &command);

/**
 * Runs a piece of a command that calls the device library. The interface knows no exceptions, but a
 * library may let one of its own libraries' through, or run out of memory.
 * \return what it returns; after an exception, which is logged, `failure`
 */
template <class Result, class Body>
Result guarded(const QString &command, Result failure, Body body)
{
    try {
        return body();
    } catch (...) {
        logException(command);
        return failure;
    }
}
