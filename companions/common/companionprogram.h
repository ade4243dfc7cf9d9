// SPDX-License-Identifier: MIT
/// \file What every companion program does at its start.
#pragma once

/**
 * Call it first in main(), before the application object: log lines carry their time, and a machine
 * without a display (or with one that can't be reached) gets Qt's offscreen platform instead of an
 * abort. A QT_QPA_PLATFORM that is set stays.
 */
void prepareCompanion();

/// Whether somebody can see this program's windows. Needs the application object.
bool hasDisplay();
