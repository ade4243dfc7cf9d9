// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

/**
 * Raises the process's limit of open files and connections to what the system admits, at most
 * 65536: more than a terminal ever has, and few enough for programs that close all of them before
 * they start another. Logs a failure.
 * \return the limit from now on
 */
quint64 raiseDescriptorLimit();
