// SPDX-License-Identifier: MIT
#pragma once

/// \file Warnings from before there is a log: on a terminal nobody sees what is printed.

/**
 * From now on remembers what is printed as a warning or worse by anything but Qt's own categories,
 * the first hundred; it is printed as before. Until QLog::handler() is called. On the main thread,
 * before there is another.
 */
void keepEarlyWarnings();

/// Prints what was remembered once more, for the log that is there by now.
void repeatEarlyWarnings();
