// SPDX-License-Identifier: MIT
//
// Start-up. Everything else happens in the event loop.

#include "app/descriptorlimit.h"
#include "app/singleinstance.h"
#include "devicelib/doccamera.h"
#include "dispatch/deviceguard.h"
#include "log/qlog.h"
#include "transport/websocketservermanager.h"

#include <QApplication>
#include <QDateTime>
#include <QDebug>

#include <cstdlib>

namespace {

constexpr quint16 port = 1818; // hard-coded in every page

/// Starts a start-up line with the time, which the log does not add by itself.
QDebug startLine()
{
    const QString time =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    return qInfo() << QStringLiteral("[%1] ").arg(time).toLocal8Bit().constData();
}

void logVersions()
{
    startLine() << "版本编译时间" << __DATE__ << __TIME__;
    char library[1000] = {};
    guarded(QStringLiteral("doccameraVeriosn"), false, [&library] {
        doccameraVeriosn(library, sizeof library);
        return true;
    });
    startLine() << library;
}

void exitIfAnotherRuns()
{
    const InstanceCount instances = countInstances();
    startLine() << instances.line.constData();
    if (!instances.anotherRuns()) {
        return;
    }
    startLine() << "process[rvowebSocketServer] is already running!!!";
    exit(EXIT_SUCCESS);
}

} // namespace

int main(int argc, char *argv[])
{
    static char loggingRules[] = "QT_LOGGING_RULES=\"*.debug=true\""; // putenv keeps the pointer
    putenv(loggingRules);
    QApplication application(argc, argv);
    logVersions();
    exitIfAnotherRuns();

    QLog::instance()->handler(QLog::LogToFile);
    raiseDescriptorLimit();
    startLine() << "boreaTcp：系统启动";
    logVersions();

    // Never deleted: pages are served until the process ends.
    auto *manager =
        new WebSocketServerManager(QStringLiteral("boreaTcp"), QWebSocketServer::NonSecureMode);
    manager->websocke_server_start(QHostAddress::Any, port);
    QGuiApplication::setQuitOnLastWindowClosed(false);
    return QApplication::exec();
}
