// SPDX-License-Identifier: MIT
#pragma once

#include <QProcessEnvironment>

namespace base {

/**
 * Makes Qt use its offscreen platform where it would abort because there is no display or it can't
 * be reached. Call before creating the application. A QT_QPA_PLATFORM that is already set is kept.
 */
void allowNoDisplay();

/// The environment for programs of the desktop: without what allowNoDisplay() has chosen for ours.
QProcessEnvironment desktopEnvironment();

} // namespace base
