// SPDX-License-Identifier: MIT
#include "base/display.h"

#include <QByteArray>

namespace base {

void allowNoDisplay()
{
    if (qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        return;
    }
    if (qEnvironmentVariableIsSet("DISPLAY")) {
        qputenv("QT_QPA_PLATFORM", "xcb;offscreen"); // the first that works
    } else if (qEnvironmentVariableIsSet("WAYLAND_DISPLAY")) {
        qputenv("QT_QPA_PLATFORM", "wayland;offscreen");
    } else {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
}

} // namespace base
