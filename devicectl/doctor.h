// SPDX-License-Identifier: MIT
#pragma once

#include "devicectl/environment.h"
#include "devicectl/texts.h"

#include <QJsonArray>

#include <vector>

/// What a check has found.
struct Finding
{
    enum class Level { Good, Warning, Fault };

    Level level = Level::Good;
    QString meaning;
    QString advice; ///< what to do; empty for a good one
};

struct Check
{
    const char *id; ///< for programs
    Text title;
    Finding (*look)(const Environment &environment);
};

/// All checks, in the order in which they are shown.
const std::vector<Check> &allChecks();

/// "ok", "warning" or "fault".
QString levelName(Finding::Level level);

/// The findings of all checks: id, title, level, meaning, advice.
QJsonArray examine(const Environment &environment);
