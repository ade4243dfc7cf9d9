// SPDX-License-Identifier: MIT
//
// Start-up. Everything else happens in the event loop.

#include "access/accesscontrol.h"
#include "app/builddate.h"
#include "app/descriptorlimit.h"
#include "app/singleinstance.h"
#include "base/datafolder.h"
#include "base/display.h"
#include "base/freememory.h"
#include "base/logtext.h"
#include "base/shortturns.h"
#include "base/statuspath.h"
#include "devicelib/doccamera.h"
#include "dispatch/deviceguard.h"
#include "log/earlywarnings.h"
#include "log/qlog.h"
#include "statussocket/statuslistener.h"
#include "statussocket/statusreport.h"
#include "transport/websocketservermanager.h"

#include <QApplication>
#include <QDateTime>
#include <QDebug>
#include <QFile>
#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

namespace {

constexpr quint16 port = 1818; // hard-coded in every page
constexpr int faultyPolicy = 78; // EX_CONFIG of sysexits.h
constexpr int wrongOption = 64; // EX_USAGE
constexpr int noDataFolder = 73; // EX_CANTCREAT

/// Starts a start-up line with the time, which the log does not add by itself.
QDebug startLine()
{
    const QString time =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
    return qInfo() << QStringLiteral("[%1] ").arg(time).toLocal8Bit().constData();
}

void logVersions()
{
    startLine() << "版本编译时间" << buildDate << buildTime;
    char library[1000] = {};
    guarded(QStringLiteral("doccameraVeriosn"), false, [&library] {
        doccameraVeriosn(library, sizeof library);
        return true;
    });
    startLine() << library;
}

bool hasOption(int argc, char *argv[], const char *option)
{
    return std::any_of(argv + 1, argv + argc,
                       [option](const char *given) { return qstrcmp(given, option) == 0; });
}

/// The value of `--data-dir DIR`; null if the option isn't there.
QString namedDataFolder(int argc, char *argv[])
{
    static const char option[] = "--data-dir";
    char **const end = argv + argc;
    char **const given = std::find_if(
        argv + 1, end, [](const char *argument) { return qstrcmp(argument, option) == 0; });
    if (given == end) {
        return QString();
    }
    if (given + 1 == end || !*given[1]) {
        fprintf(stderr, "%s: the folder is missing\n", option);
        exit(wrongOption);
    }
    return QFile::decodeName(given[1]);
}

/// Before anything is read or written. Ends the program if the folder named can't be used.
void chooseDataFolder(const QString &named)
{
    const QString problem = base::chooseDataFolder(named);
    if (problem.isEmpty()) {
        return;
    }
    fprintf(stderr, "data folder: %s\n", QFile::encodeName(base::oneLine(problem)).constData());
    if (!named.isEmpty()) {
        exit(noDataFolder);
    }
}

void logDataFolder()
{
    const QString folder = base::dataFolder();
    if (folder != QCoreApplication::applicationDirPath()) {
        startLine() << "data folder:" << folder;
    }
}

/// A display that can't be reached, mostly for want of XAUTHORITY, is a technician's business.
void logMissingDisplay()
{
    const QByteArray display = qgetenv("DISPLAY") + qgetenv("WAYLAND_DISPLAY");
    if (!display.isEmpty() && QGuiApplication::platformName() == QLatin1String("offscreen")) {
        qWarning() << "the display can't be used: windows and counter pages are not shown;"
                   << "DISPLAY is" << display << "and XAUTHORITY" << qgetenv("XAUTHORITY");
    }
}

/**
 * Starts the device process before the first call, so that its libraries are loaded while this
 * process goes on with its own start. A maker's library in this process has no such function.
 */
void startDevices()
{
    using Start = void (*)();
    if (const auto start = reinterpret_cast<Start>(dlsym(RTLD_DEFAULT, "startDeviceProcess"))) {
        start();
    }
}

void exitIfAnotherRuns(InstanceCounting &counting)
{
    InstanceCount instances = counting.result();
    if (instances.anotherRuns()) {
        // A device process that died while it was counted was replaced by one that may have been
        // taken for a second server.
        instances = InstanceCounting().result();
    }
    startLine() << instances.line.constData();
    if (!instances.anotherRuns()) {
        return;
    }
    startLine() << "process[rvowebSocketServer] is already running!!!";
    exit(EXIT_SUCCESS);
}

/// The last line on the terminal: everything else goes to the log.
void sayWhereItListens(bool listens)
{
    if (listens) {
        printf("listening on ws://127.0.0.1:%d, log in %s\n", int(port),
               QFile::encodeName(QLog::instance()->logPath()).constData());
    } else {
        printf("not listening: port %d can't be used, the log in %s says why\n", int(port),
               QFile::encodeName(QLog::instance()->logPath()).constData());
    }
    fflush(stdout);
}

/// The access policy: the system's, or that of the data folder.
std::unique_ptr<accesspolicy::AccessControl> readPolicy()
{
    const QString program = base::programFolder();
    const QString data = base::dataFolder();
    return std::make_unique<accesspolicy::AccessControl>(
        accesspolicy::PolicyPlaces::of(program, data), data + QStringLiteral("/log"),
        program + QStringLiteral("/webSite"));
}

/// What this program is, for its status.
statussocket::Program programFacts()
{
    statussocket::Program program;
    program.version = QStringLiteral(SERVER_VERSION);
    program.built = QStringLiteral("%1 %2").arg(QLatin1String(buildDate), QLatin1String(buildTime));
    program.folder = QCoreApplication::applicationDirPath();
    program.dataFolder = base::dataFolder();
    program.logFolder = QLog::instance()->logPath();
    return program;
}

/// Says why it is none, on standard error and in the log, and ends the program.
[[noreturn]] void endForFaultyPolicy(const QString &error)
{
    const QByteArray line = (QLatin1String("access: ") + base::oneLine(error)).toLocal8Bit();
    fprintf(stderr, "%s\n", line.constData());
    startLine() << line.constData();
    QLog::instance()->handler({}); // writes the line
    exit(faultyPolicy);
}

} // namespace

int main(int argc, char *argv[])
{
    static char loggingRules[] = "QT_LOGGING_RULES=\"*.debug=true\""; // putenv keeps the pointer
    putenv(loggingRules);
    if (hasOption(argc, argv, "--simulate")) {
        static char simulation[] = "DEVICE_SIMULATION=1"; // for the device process as well
        putenv(simulation);
    }
    keepEarlyWarnings();
    base::allowNoDisplay(); // the companions and the device process take over what it chooses
    chooseDataFolder(namedDataFolder(argc, argv));
    auto policy = readPolicy();
    policy->restrictDevices(); // before there is a device process
    startDevices();
    InstanceCounting counting; // after that: nothing that looks like this process may begin now
    base::takeShortTurns(base::ShortTurns::OfThisThread); // commands
    QApplication application(argc, argv);
    const std::unique_ptr<accesspolicy::AccessControl> access = std::move(policy); // ends before it
    logVersions();
    exitIfAnotherRuns(counting);

    QLog::instance()->handler(QLog::LogToFile);
    repeatEarlyWarnings();
    raiseDescriptorLimit();
    base::returnFreeMemory();
    if (!access->error().isEmpty()) {
        endForFaultyPolicy(access->error());
    }
    access->start();
    startLine() << "boreaTcp：系统启动";
    logDataFolder();
    logMissingDisplay();
    logVersions();

    // Never deleted: pages are served until the process ends.
    auto *manager =
        new WebSocketServerManager(QStringLiteral("boreaTcp"), QWebSocketServer::NonSecureMode);
    manager->setAccess(access.get());
    manager->websocke_server_start(QHostAddress::Any, port);
    sayWhereItListens(manager->running());
    statussocket::StatusReport report(programFacts(), *manager, *access);
    const statussocket::StatusListener statusListener(base::statusSocketPath(),
                                                      [&report] { return report.make(); });
    QGuiApplication::setQuitOnLastWindowClosed(false);
    return QApplication::exec();
}
