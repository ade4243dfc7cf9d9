// SPDX-License-Identifier: MIT
#pragma once

namespace portable {

class IniFile;

/// Set to 1 by the server's option --simulate, for the device process too.
constexpr char simulationVariable[] = "DEVICE_SIMULATION";

/**
 * Whether the library makes up devices that the machine doesn't have: the test scene, cards, a
 * finger. Off unless [simulation] enabled= of devices.ini or the environment switches it on. What
 * devices.ini names outright doesn't depend on it. Any thread.
 */
bool isSimulationEnabled(const IniFile &ini);

/// The same, by the devices.ini in the program's directory, which is read at each call.
bool isSimulationEnabled();

/// For log lines about a device that is missing.
constexpr char simulationHint[] =
    "; simulation is off ([simulation] enabled= in devices.ini, or the server's --simulate)";

} // namespace portable
