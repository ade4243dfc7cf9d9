// SPDX-License-Identifier: MIT
#pragma once

#include <QDebug>

/**
 * Begins a debug line with the place it stands at, for technicians who follow a command through
 * the log: `TRACE << "text" << value;` in line 41 of signsouthinterface.cpp, function start, gives
 *
 *     41 start signsouthinterface text "value"
 *
 * A QString is quoted and escaped, as QDebug does: what a page sends can't forge a log line.
 */
#define TRACE traceLine(__FILE__, __LINE__, __func__)

/// What TRACE expands to; the texts must be literals or live as long as the program.
QDebug traceLine(const char *file, int line, const char *function);
