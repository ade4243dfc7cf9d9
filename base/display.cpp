// SPDX-License-Identifier: MIT
#include "base/display.h"

#include <QByteArray>

namespace base {

namespace {

const char variable[] = "QT_QPA_PLATFORM";
const char onX11[] = "xcb;offscreen"; // the first that works
const char onWayland[] = "wayland;offscreen";
const char nowhere[] = "offscreen";

} // namespace

void allowNoDisplay()
{
    if (qEnvironmentVariableIsSet(variable)) {
        return;
    }
    if (qEnvironmentVariableIsSet("DISPLAY")) {
        qputenv(variable, onX11);
    } else if (qEnvironmentVariableIsSet("WAYLAND_DISPLAY")) {
        qputenv(variable, onWayland);
    } else {
        qputenv(variable, nowhere);
    }
}

QProcessEnvironment desktopEnvironment()
{
    const QByteArray platform = qgetenv(variable);
    auto environment = QProcessEnvironment::systemEnvironment();
    // Who sets another has a reason.
    if (platform == onX11 || platform == onWayland || platform == nowhere) {
        environment.remove(QLatin1String(variable));
    }
    return environment;
}

} // namespace base
