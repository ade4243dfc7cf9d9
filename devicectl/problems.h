// SPDX-License-Identifier: MIT
#pragma once

#include <QTextStream>

/// Says why something isn't done: a person on `error`, a program by {"error": text} on `out`, in
/// one line.
void printProblem(const QString &text, bool isJson, QTextStream &out, QTextStream &error);
