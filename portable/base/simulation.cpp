// SPDX-License-Identifier: MIT
#include "portable/base/simulation.h"

#include "portable/base/deviceini.h"
#include "portable/base/inifile.h"

namespace portable {

bool isSimulationEnabled(const IniFile &ini)
{
    if (qgetenv(simulationVariable) == "1") {
        return true;
    }
    const QString text = ini.text(QStringLiteral("simulation/enabled")).toLower();
    const bool isOn = text == QLatin1String("true") || text == QLatin1String("1")
        || text == QLatin1String("yes") || text == QLatin1String("on");
    const bool isOff = text.isEmpty() || text == QLatin1String("false")
        || text == QLatin1String("0") || text == QLatin1String("no")
        || text == QLatin1String("off");
    if (!isOn && !isOff) {
        ini.logProblem(
            QStringLiteral("simulation/enabled must be true or false, not \"%1\"").arg(text));
    }
    return isOn;
}

bool isSimulationEnabled()
{
    return isSimulationEnabled(IniFile(deviceConfigPath()));
}

} // namespace portable
