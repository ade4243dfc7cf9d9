// SPDX-License-Identifier: MIT
#include "companions/common/companionprogram.h"

#include <QGuiApplication>

void prepareCompanion()
{
    qunsetenv("QT_LOGGING_RULES"); // the server's, which Qt takes for malformed and says so
    qSetMessagePattern(QStringLiteral("[%{time yyyy-MM-dd HH:mm:ss.zzz}] %{message}"));
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

bool hasDisplay()
{
    const QString platform = QGuiApplication::platformName();
    return platform != QLatin1String("offscreen") && platform != QLatin1String("minimal");
}
