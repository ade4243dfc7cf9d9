// SPDX-License-Identifier: MIT
#include "statussocket/statusreport.h"

#include "access/accesscontrol.h"
#include "base/datafolder.h"
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
constexpr auto mainThreadWait = 2ms; ///< the time to send some frames

double milliseconds(std::chrono::nanoseconds time)
{
    const qint64 microseconds = std::chrono::duration_cast<std::chrono::microseconds>(time).count();
    return double(microseconds) / 1000;
}

/// Resident memory of a process; 0 if it is gone. The second field of proc(5), statm.
double residentKiB(qint64 pid)
{
    QFile file(QStringLiteral("/proc/%1/statm").arg(pid));
    if (!file.open(QIODevice::ReadOnly)) {
        return 0;
    }
    const QList<QByteArray> fields = file.readAll().split(' ');
    const qint64 pages = fields.size() < 2 ? 0 : fields[1].toLongLong();
    return double(pages * sysconf(_SC_PAGESIZE)) / 1024;
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
            {QStringLiteral("waitingMs"), milliseconds(figures.waiting)},
            {QStringLiteral("framesFetched"), double(figures.fetched)},
            {QStringLiteral("framesPushed"), double(figures.pushed)},
            {QStringLiteral("framesDropped"), double(figures.dropped)},
            {QStringLiteral("framesFailed"), double(figures.failed)},
            {QStringLiteral("framesQueued"), figures.queued},
            {QStringLiteral("fetchMs"), milliseconds(figures.fetching)},
            {QStringLiteral("encodeMs"), milliseconds(figures.encoding)}};
}

/// As the stub library says; null with a maker's library in the server itself.
QJsonValue deviceProcess()
{
    using Status = int (*)(char *json, int size);
    static const auto status = reinterpret_cast<Status>(dlsym(RTLD_DEFAULT, "deviceProcessStatus"));
    std::array<char, 65536> json{};
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

bool isSimulationOn()
{
    const QSettings devices(base::findData(QStringLiteral("devices.ini")), QSettings::IniFormat);
    return qgetenv("DEVICE_SIMULATION") == "1"
        || devices.value(QStringLiteral("simulation/enabled")).toBool();
}

QJsonArray listed(const QVector<PageStatus> &pages)
{
    QJsonArray list;
    for (const PageStatus &page : pages) {
        list.append(QJsonObject{{QStringLiteral("address"), page.address},
                                {QStringLiteral("origin"), page.origin},
                                {QStringLiteral("framesSent"), double(page.framesSent)},
                                {QStringLiteral("framesDropped"), double(page.framesDropped)},
                                {QStringLiteral("frameAgeMs"), page.frameAgeMs},
                                {QStringLiteral("oldestFrameMs"), page.oldestFrameMs},
                                {QStringLiteral("bytesWaiting"), double(page.bytesWaiting)},
                                {QStringLiteral("textsWaiting"), page.textsWaiting},
                                {QStringLiteral("lastCommand"), page.lastCommand}});
    }
    return list;
}

} // namespace

/// What belongs to the main thread. It only copies; the text is made by the thread that asks.
struct StatusReport::MainThreadPart
{
    quint16 port = 0;
    PagesStatus pages;
    std::chrono::nanoseconds sending{};
    qint64 waitingBytes = 0;
    QString accessMode;
    QString accessFile;
    std::chrono::steady_clock::time_point time; ///< of this answer; unset: there was none yet
};

/// What the main thread and the one that asks share.
struct StatusReport::Shared
{
    const WebSocketServerManager *manager; ///< null once the report is gone; main thread only
    const accesspolicy::AccessControl *access;

    std::mutex mutex;
    std::condition_variable answered;
    bool isAsked = false; // guarded by mutex, as below: a request is on its way
    MainThreadPart latest;
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

/// One request at a time waits in its event loop, however often somebody asks.
void StatusReport::askMainThread() const
{
    {
        const std::lock_guard<std::mutex> lock(m_shared->mutex);
        if (std::exchange(m_shared->isAsked, true)) {
            return;
        }
    }
    base::postToMainThread([shared = m_shared] {
        if (!shared->manager) {
            return;
        }
        const WebSocketServerManager &manager = *shared->manager;
        MainThreadPart part{manager.port(),
                            manager.pages(mostPages),
                            manager.frameSending(),
                            manager.dispatcher()->clientQueue()->waitingBytes(),
                            shared->access->modeText(),
                            shared->access->file(),
                            std::chrono::steady_clock::now()};
        const std::lock_guard<std::mutex> lock(shared->mutex);
        shared->latest = std::move(part);
        shared->isAsked = false;
        shared->answered.notify_all();
    });
}

QByteArray StatusReport::make()
{
    const auto latest = std::chrono::steady_clock::now() + mainThreadWait;
    askMainThread();
    const MessageRun::UnderWay underWay = MessageRun::underWay();
    QJsonObject cameraPart = camera();
    QJsonObject report{{QStringLiteral("format"), format},
                       {QStringLiteral("version"), m_program.version},
                       {QStringLiteral("built"), m_program.built},
                       {QStringLiteral("pid"), double(getpid())},
                       {QStringLiteral("uptimeSeconds"), double(m_started.elapsed()) / 1000},
                       {QStringLiteral("deviceProcess"), deviceProcess()},
                       {QStringLiteral("memory"),
                        QJsonObject{{QStringLiteral("residentKiB"), residentKiB(getpid())}}},
                       {QStringLiteral("simulation"), isSimulationOn()},
                       {QStringLiteral("folders"),
                        QJsonObject{{QStringLiteral("program"), m_program.folder},
                                    {QStringLiteral("data"), m_program.dataFolder},
                                    {QStringLiteral("log"), m_program.logFolder}}},
                       {QStringLiteral("problems"), problems()}};

    std::unique_lock<std::mutex> lock(m_shared->mutex);
    const bool isAnswered =
        m_shared->answered.wait_until(lock, latest, [this] { return !m_shared->isAsked; });
    const MainThreadPart part = m_shared->latest;
    lock.unlock();

    QJsonObject mainThread{{QStringLiteral("answers"), isAnswered},
                           {QStringLiteral("command"), underWay.name},
                           {QStringLiteral("forMs"), double(underWay.since.count())}};
    if (!isAnswered && part.time != std::chrono::steady_clock::time_point()) {
        mainThread.insert(QStringLiteral("pagesAgeMs"),
                          milliseconds(std::chrono::steady_clock::now() - part.time));
    }
    cameraPart.insert(QStringLiteral("sendMs"), milliseconds(part.sending));
    report.insert(QStringLiteral("camera"), cameraPart);
    report.insert(QStringLiteral("mainThread"), mainThread);
    report.insert(QStringLiteral("port"), int(part.port));
    report.insert(QStringLiteral("pages"), listed(part.pages.first));
    report.insert(QStringLiteral("pageCount"), part.pages.count);
    report.insert(QStringLiteral("queues"),
                  QJsonObject{{QStringLiteral("bytesOfTexts"), double(part.waitingBytes)},
                              {QStringLiteral("unreadBytes"), double(part.pages.bytesWaiting)}});
    report.insert(QStringLiteral("access"),
                  QJsonObject{{QStringLiteral("mode"), part.accessMode},
                              {QStringLiteral("file"), part.accessFile}});
    return QJsonDocument(report).toJson(QJsonDocument::Compact) + '\n';
}

} // namespace statussocket
