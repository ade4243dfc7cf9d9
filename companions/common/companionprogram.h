// SPDX-License-Identifier: MIT
/// \file What the main() functions of the companion programs share.
#pragma once

#include "companions/common/requestserver.h"

/**
 * Call first in main(), before creating the application: adds the time to log lines, and calls
 * base::allowNoDisplay().
 */
void prepareCompanion();

/// Whether anybody can see this program's windows. Needs the application object.
bool hasDisplay();

/**
 * Call last in main(): runs the event loop if the program's server is listening, ends at once if
 * not. \return the exit code
 */
int runCompanion(RequestServer::Start start);
