// SPDX-License-Identifier: MIT
#include "portable/base/simulation.h"

#include "portable/base/deviceini.h"
#include "portable/base/inifile.h"

namespace portable {

bool isSimulationEnabled(const IniFile &ini)
{
    return qgetenv(simulationVariable) == "1" || ini.isOn(QStringLiteral("simulation/enabled"));
}

bool isSimulationEnabled()
{
    return isSimulationEnabled(IniFile(deviceConfigPath()));
}

} // namespace portable
