// SPDX-License-Identifier: MIT
#pragma once

#include "devicectl/checks/check.h"

#include <vector>

/**
 * The checks of `devicectl doctor` by groups, in the order in which they are shown; each group is
 * in the file of its name.
 */
namespace checks {

std::vector<Check> programChecks(); ///< the server's process, its port, its answers
std::vector<Check> folderChecks(); ///< folders of the server, their disk, the log
std::vector<Check> machineChecks(); ///< memory and clock
std::vector<Check> cameraChecks();
std::vector<Check> deviceChecks(); ///< card reader and printer
std::vector<Check> displayChecks(); ///< the server's display, the customer's screen
std::vector<Check> browserChecks(); ///< the browser of the counter pages, its policy
std::vector<Check> installedChecks(); ///< what else is installed
std::vector<Check> deviceProcessChecks();
std::vector<Check> pageChecks(); ///< pages and the access policy

} // namespace checks
