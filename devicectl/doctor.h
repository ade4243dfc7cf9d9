// SPDX-License-Identifier: MIT
#pragma once

#include "devicectl/checks/check.h"

#include <QJsonArray>

#include <vector>

/// All checks, in the order in which they are shown.
const std::vector<Check> &allChecks();

/// "ok", "warning" or "fault".
QString levelName(Finding::Level level);

/// The findings of all checks: id, title, level, meaning, advice.
QJsonArray examine(const Environment &environment);
