// SPDX-License-Identifier: MIT
#pragma once

#include <QDebug>

/**
 * Starts a debug line with its place in the source, for technicians who follow a command through
 * the log: `TRACE << "text" << value;` in line 41 of signsouthinterface.cpp, function start, prints
 *
 *     41 start signsouthinterface text "value"
 *
 * QDebug quotes and escapes a QString, so a text from a page can't forge a log line.
 */
#define TRACE traceLine(__FILE__, __LINE__, __func__)

/// Implementation of TRACE. The texts must live as long as the program.
QDebug traceLine(const char *file, int line, const char *function);
