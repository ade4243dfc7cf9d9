// SPDX-License-Identifier: MIT
#include "companions/common/companionprogram.h"

#include "base/display.h"

#include <QGuiApplication>

void prepareCompanion()
{
    qunsetenv("QT_LOGGING_RULES"); // the server's; Qt would warn about its format
    qSetMessagePattern(QStringLiteral("[%{time yyyy-MM-dd HH:mm:ss.zzz}] %{message}"));
    base::allowNoDisplay();
}

bool hasDisplay()
{
    const QString platform = QGuiApplication::platformName();
    return platform != QLatin1String("offscreen") && platform != QLatin1String("minimal");
}

int runCompanion(RequestServer::Start start)
{
    switch (start) {
    case RequestServer::Start::Listening:
        return QGuiApplication::exec();
    case RequestServer::Start::AnotherRuns:
        return 0;
    case RequestServer::Start::Failed:
        break;
    }
    return 1;
}
