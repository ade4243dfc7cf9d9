// SPDX-License-Identifier: MIT
#pragma once

#include "devicectl/exitcode.h"

#include <QStringList>
#include <QTextStream>

/// Carries out a command line, without the program's name: `status --json`.
ExitCode runDevicectl(const QStringList &words, QTextStream &out, QTextStream &error);

/// The completion script of bash: verbs, their options, and the names of all commands.
QString bashCompletion();

/// The names of all verbs.
QStringList verbNames();
