// SPDX-License-Identifier: MIT
#include "statussocket/statusreport.h"

#include "access/accesscontrol.h"
#include "base/mainthread.h"
#include "camera/captureimgthread.h"
#include "dispatch/clientqueue.h"
#include "dispatch/messagerun.h"
#include "log/qlog.h"
#include "transport/websocketservermanager.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <dlfcn.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace statussocket {

namespace {

using namespace std::chrono_literals;

constexpr int format = 1; ///< of the report; another number when a member changes its meaning
constexpr auto mainThreadWait = 2ms; ///< some frames' worth of its work

double milliseconds(std::chrono::nanoseconds time)
{
    return double(time.count() / 1000) / 1000;
}

/// Resident memory of a process; 0 if it is gone. The second field of proc(5), statm.
double residentKiB(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/statm").arg(pid));
    if (!file.open(QIODevice::ReadOnly)) {
        return 0;
    }
    const QList<QByteArray> fields = file.readAll().split(' ');
    return fields.size() < 2 ? 0 : double(fields[1].toLongLong() * (sysconf(_SC_PAGESIZE) / 1024));
}

QJsonObject camera()
{
    const CaptureImgThread *thread = CaptureImgThread::instance();
    const CaptureImgThread::Figures figures = thread->figures();
    const QSize size = thread->previewSize();
    return {{QStringLiteral("source"), figures.camera},
            {QStringLiteral("paused"), figures.isPaused},
            {QStringLiteral("pushing"), thread->bGetPreviewEnable()},
            {QStringLiteral("width"), size.width()},
            {QStringLiteral("height"), size.height()},
            {QStringLiteral("framesPerSecond"), qRound(figures.framesPerSecond * 10) / 10.0},
            {QStringLiteral("framesFetched"), double(figures.fetched)},
            {QStringLiteral("framesPushed"), double(figures.pushed)},
            {QStringLiteral("framesDropped"), double(figures.dropped)},
            {QStringLiteral("framesFailed"), double(figures.failed)},
            {QStringLiteral("framesQueued"), figures.queued},
            {QStringLiteral("fetchMs"), milliseconds(figures.fetching)},
            {QStringLiteral("encodeMs"), milliseconds(figures.encoding)}};
}

/// The stub library's word; null with a maker's library in the server itself.
QJsonValue deviceProcess()
{
    using Status = int (*)(char *json, int size);
    static const auto status = reinterpret_cast<Status>(dlsym(RTLD_DEFAULT, "deviceProcessStatus"));
    std::array<char, 64 * 1024> json{};
    const int length = status ? status(json.data(), int(json.size())) : 0;
    if (length == 0) {
        return {};
    }
    QJsonObject object =
        QJsonDocument::fromJson(QByteArray::fromRawData(json.data(), length)).object();
    const int pid = object.value(QStringLiteral("pid")).toInt();
    if (pid > 0) {
        object.insert(QStringLiteral("residentKiB"), residentKiB(pid));
    }
    return object;
}

QString levelName(QtMsgType type)
{
    return type == QtWarningMsg ? QStringLiteral("warning") : QStringLiteral("error");
}

QJsonArray problems()
{
    QJsonArray list;
    const auto kept = QLog::instance()->problems();
    for (const QLog::Problem &problem : kept) {
        const QDateTime time = QDateTime::fromMSecsSinceEpoch(problem.time);
        list.append(QJsonObject{{QStringLiteral("time"), time.toString(Qt::ISODateWithMs)},
                                {QStringLiteral("level"), levelName(problem.type)},
                                {QStringLiteral("text"), problem.text}});
    }
    return list;
}

bool isSimulationOn(const QString &folder)
{
    const QSettings devices(folder + QStringLiteral("/devices.ini"), QSettings::IniFormat);
    return qgetenv("DEVICE_SIMULATION") == "1"
        || devices.value(QStringLiteral("simulation/enabled")).toBool();
}

QJsonArray pagesOf(const WebSocketServerManager &manager)
{
    QJsonArray list;
    const auto pages = manager.pages();
    for (const PageStatus &page : pages) {
        list.append(QJsonObject{{QStringLiteral("address"), page.address},
                                {QStringLiteral("origin"), page.origin},
                                {QStringLiteral("framesSent"), double(page.framesSent)},
                                {QStringLiteral("framesDropped"), double(page.framesDropped)},
                                {QStringLiteral("bytesWaiting"), double(page.bytesWaiting)},
                                {QStringLiteral("textsWaiting"), page.textsWaiting},
                                {QStringLiteral("lastCommand"), page.lastCommand}});
    }
    return list;
}

/// What belongs to the main thread; on it.
QJsonObject mainThreadPart(const WebSocketServerManager &manager,
                           const accesspolicy::AccessControl &access)
{
    return {{QStringLiteral("port"), int(manager.port())},
            {QStringLiteral("pages"), pagesOf(manager)},
            {QStringLiteral("sendMs"), milliseconds(manager.frameSending())},
            {QStringLiteral("queues"),
             QJsonObject{{QStringLiteral("bytesOfTexts"),
                          double(manager.dispatcher()->clientQueue()->waitingBytes())}}},
            {QStringLiteral("access"),
             QJsonObject{{QStringLiteral("mode"), access.modeText()},
                         {QStringLiteral("file"), access.file()}}}};
}

} // namespace

/// What the main thread and the one that asks share.
struct StatusReport::Shared
{
    const WebSocketServerManager *manager; ///< null once the report is gone; main thread only
    const accesspolicy::AccessControl *access;

    std::mutex mutex;
    std::condition_variable answered;
    bool isAsked = false; // guarded by mutex, as all below: a request is on its way
    QJsonObject part; // the latest answer
    std::chrono::steady_clock::time_point time; // of that
};

StatusReport::StatusReport(Program program, const WebSocketServerManager &manager,
                           const accesspolicy::AccessControl &access)
    : m_program(std::move(program))
    , m_shared(std::make_shared<Shared>())
{
    m_shared->manager = &manager;
    m_shared->access = &access;
    m_started.start();
}

StatusReport::~StatusReport()
{
    m_shared->manager = nullptr;
}

QByteArray StatusReport::make()
{
    const auto answer = [shared = m_shared] {
        if (!shared->manager) {
            return;
        }
        const QJsonObject part = mainThreadPart(*shared->manager, *shared->access);
        const std::lock_guard<std::mutex> lock(shared->mutex);
        shared->part = part;
        shared->time = std::chrono::steady_clock::now();
        shared->isAsked = false;
        shared->answered.notify_all();
    };

    std::unique_lock<std::mutex> lock(m_shared->mutex);
    if (!std::exchange(m_shared->isAsked, true)) {
        lock.unlock();
        base::postToMainThread(answer);
        lock.lock();
    }
    const bool isAnswered =
        m_shared->answered.wait_for(lock, mainThreadWait, [this] { return !m_shared->isAsked; });
    QJsonObject report = m_shared->part;
    const auto age = std::chrono::steady_clock::now() - m_shared->time;
    lock.unlock();

    const MessageRun::UnderWay underWay = MessageRun::underWay();
    QJsonObject mainThread{{QStringLiteral("answers"), isAnswered},
                           {QStringLiteral("command"), underWay.name},
                           {QStringLiteral("forMs"), double(underWay.since.count())}};
    if (!isAnswered && report.contains(QStringLiteral("pages"))) {
        mainThread.insert(QStringLiteral("pagesAgeMs"), milliseconds(age));
    }
    QJsonObject cameraPart = camera();
    cameraPart.insert(QStringLiteral("sendMs"), report.take(QStringLiteral("sendMs")));
    report.insert(QStringLiteral("format"), format);
    report.insert(QStringLiteral("version"), m_program.version);
    report.insert(QStringLiteral("built"), m_program.built);
    report.insert(QStringLiteral("pid"), double(getpid()));
    report.insert(QStringLiteral("uptimeSeconds"), double(m_started.elapsed()) / 1000);
    report.insert(QStringLiteral("mainThread"), mainThread);
    report.insert(QStringLiteral("camera"), cameraPart);
    report.insert(QStringLiteral("deviceProcess"), deviceProcess());
    report.insert(QStringLiteral("memory"),
                  QJsonObject{{QStringLiteral("residentKiB"), residentKiB(getpid())}});
    report.insert(QStringLiteral("simulation"), isSimulationOn(m_program.folder));
    report.insert(QStringLiteral("folders"),
                  QJsonObject{{QStringLiteral("program"), m_program.folder},
                              {QStringLiteral("log"), QLog::instance()->logPath()}});
    report.insert(QStringLiteral("problems"), problems());
    return QJsonDocument(report).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace statussocket
