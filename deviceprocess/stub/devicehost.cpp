// SPDX-License-Identifier: MIT
#include "deviceprocess/stub/devicehost.h"

#include "deviceprocess/stub/mappedpictures.h"
#include "deviceprocess/stub/owedresults.h"
#include "deviceprocess/stub/spawn.h"

#include <QFile>
#include <QStringList>
#include <QtDebug>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <utility>

namespace deviceprocess {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds longestPause{30}; ///< Between the starts of a process that keeps dying.
constexpr seconds soundAfter{5}; ///< A process that lived that long counts as a sound one.
constexpr milliseconds pingAfter{500}; ///< A call that takes longer makes us ask.
constexpr milliseconds lookEvery{100}; ///< During a call, whether the process has been stopped.
constexpr milliseconds pongLimit{
    1000}; ///< For a thread of the process that has nothing else to do.
constexpr int eventsPerSecond = 2000; ///< What no camera or reader says; the process runs wild.

thread_local quint64 threadGeneration = 0;

milliseconds scaled(milliseconds time, double factor)
{
    return milliseconds(qint64(double(time.count()) * factor));
}

QString nameOf(FunctionId function)
{
    return QString::fromLatin1(functionName(std::uint32_t(function)));
}

/// Passes a line of the host on to the server's log. The body: its QtMsgType, then the text.
void logLine(const Message &message)
{
    Reader reader(message);
    const auto type = reader.value<std::int32_t>();
    const QString text = QString::fromUtf8(reader.bytes());
    if (type == QtDebugMsg) {
        qDebug().noquote() << text;
    } else if (type == QtInfoMsg) {
        qInfo().noquote() << text;
    } else {
        qWarning().noquote() << text;
    }
}

/// Calls the listener that an event is for. \return false for an event that can't be
bool deliver(const Message &message)
{
    if (message.function >= functionCount || !deliverers[message.function]) {
        return false;
    }
    Reader reader(message);
    return deliverers[message.function](reader);
}

} // namespace

/// A thread's connection to one process; closed when the thread ends.
struct DeviceHost::Connection
{
    int socket = -1;
    quint64 generation = 0;

    ~Connection() { closeDescriptor(&socket); }
};

DeviceHost::DeviceHost(const QString &program)
    : m_program(program)
{
}

void DeviceHost::stop()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_state = State::Stopping;
        if (m_pid > 0) {
            kill(-m_pid, SIGKILL);
        }
    }
    m_changed.notify_all();
    if (m_supervisor.joinable()) {
        m_supervisor.join();
    }
}

void DeviceHost::setFolders(const QByteArray &folders)
{
    quint64 generation = 0;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (folders == m_folders && folders.isNull() == m_folders.isNull()) {
            return;
        }
        m_folders = folders;
        generation = m_generation;
    }
    end(generation, QStringLiteral("the folders of the access policy have changed"));
}

quint64 DeviceHost::generationOfThread()
{
    return threadGeneration;
}

pid_t DeviceHost::processId() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_pid;
}

int DeviceHost::restarts() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_restarts;
}

std::optional<DeviceHost::Status> DeviceHost::status() const
{
    std::unique_lock<std::mutex> lock(m_mutex, std::try_to_lock);
    bool isLocked = lock.owns_lock();
    for (int tries = 0; !isLocked && tries < 10; ++tries) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        isLocked = lock.try_lock();
    }
    if (!isLocked) {
        return {};
    }
    const auto now = Clock::now();
    const auto since = [now](Clock::time_point time) {
        return std::chrono::duration_cast<milliseconds>(now - time);
    };
    Status status;
    status.pid = m_pid;
    status.restarts = m_restarts;
    status.lastReason = m_lastReason.toUtf8();
    status.libraryError = m_libraryError;
    status.missing = m_missing;
    status.running = m_pid > 0 ? since(m_started) : milliseconds(0);
    for (const auto &call : m_underWay) {
        status.calls.push_back(
            {functionName(std::uint32_t(call.second.function)), since(call.second.since)});
    }
    return status;
}

void DeviceHost::setTimeLimits(const TimeLimits &limits)
{
    m_callFactor = limits.callFactor;
    m_pauseFactor = limits.pauseFactor;
    m_startLimit = limits.start;
}

DeviceHost::Clock::time_point DeviceHost::deadline(FunctionId function) const
{
    return Clock::now() + scaled(seconds(functionSeconds(std::uint32_t(function))), m_callFactor);
}

bool DeviceHost::isUsable(const Connection &connection) const
{
    return m_state == State::Running && connection.generation == m_generation
        && connection.socket >= 0;
}

void DeviceHost::begin()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    beginLocked();
    m_changed.wait(lock, [this] { return m_generation > 0 || m_state != State::Starting; });
}

void DeviceHost::beginLocked()
{
    if (m_state == State::Idle) {
        m_state = State::Starting;
        m_supervisor = std::thread(&DeviceHost::supervise, this);
    }
}

/// The calling thread's connection to the process that runs; starts it first, or waits for that.
std::shared_ptr<DeviceHost::Connection> DeviceHost::connection()
{
    thread_local std::shared_ptr<Connection> own;
    std::unique_lock<std::mutex> lock(m_mutex);
    if (own && isUsable(*own)) {
        return own;
    }
    beginLocked();
    m_changed.wait_for(lock, m_startLimit.load(), [this] { return m_state != State::Starting; });
    if (m_state != State::Running) {
        return nullptr;
    }
    own = std::make_shared<Connection>();
    own->generation = m_generation;
    own->socket = newCaller(syscall(SYS_gettid) == getpid());
    return own->socket >= 0 ? own : nullptr;
}

/// Under m_mutex. \return the server's end of a new connection; -1 when the process is gone
int DeviceHost::newCaller(bool isMainThread)
{
    int sockets[2];
    if (!makeSocketPair(sockets)) {
        qWarning("device process: no further connection: %s", std::strerror(errno));
        return -1;
    }
    Writer hello;
    hello.value<std::uint8_t>(isMainThread ? 1 : 0);
    hello.setDescriptor(sockets[1]);
    const bool isSent =
        sendMessage(m_control, MessageKind::Call, 0, hello, Clock::now() + seconds(5));
    close(sockets[1]);
    if (!isSent) {
        close(sockets[0]);
        return -1;
    }
    return sockets[0];
}

bool DeviceHost::call(FunctionId function, FunctionKind kind, const Writer &arguments,
                      Message *reply)
{
    m_settings.noteCall(function, kind, arguments.body());
    bool isAnswered = attempt(function, arguments, reply);
    if (!isAnswered && kind == FunctionKind::Frame
        && isReplaced(threadGeneration, deadline(function))) {
        isAnswered = attempt(function, arguments, reply);
    }
    if (kind == FunctionKind::Closing) {
        forgetMappings(); // of the preview that has ended
    }
    if (isAnswered) {
        m_settings.noteReply(function, kind, arguments.body(), *reply);
    }
    return isAnswered;
}

/// Waits for another process than this one, but not for one whose start is put off.
bool DeviceHost::isReplaced(quint64 generation, Clock::time_point until)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto isNew = [=] { return m_state == State::Running && m_generation != generation; };
    m_changed.wait_until(lock, until,
                         [=] { return isNew() || m_isPausing || m_state == State::Stopping; });
    return isNew();
}

bool DeviceHost::attempt(FunctionId function, const Writer &arguments, Message *reply)
{
    const auto link = connection();
    const auto until = deadline(function); // the start of the process has a limit of its own
    if (!link) {
        qWarning().noquote() << "device process:" << nameOf(function)
                             << "failed: the process doesn't run";
        return false;
    }
    threadGeneration = link->generation;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_underWay[std::this_thread::get_id()] = {function, Clock::now()};
    }
    const Received result = exchange(*link, function, arguments, until, reply);
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_underWay.erase(std::this_thread::get_id());
        if (result != Received::Message && link->generation == m_generation) {
            m_lost.push_back(function);
        }
    }
    if (result == Received::Message) {
        return true;
    }
    // Whatever came later on this connection would be taken for the answer to another call.
    closeDescriptor(&link->socket);
    if (result == Received::TimedOut) {
        end(link->generation,
            QStringLiteral("%1 took longer than %2 s")
                .arg(nameOf(function))
                .arg(functionSeconds(std::uint32_t(function)) * m_callFactor));
    } else if (result == Received::Invalid) {
        end(link->generation, nameOf(function) + QStringLiteral(" was answered with garbage"));
    }
    return false;
}

/// One call and its answer; listeners that the library calls meanwhile are called here.
Received DeviceHost::exchange(Connection &link, FunctionId function, const Writer &arguments,
                              Clock::time_point until, Message *reply)
{
    if (!sendMessage(link.socket, MessageKind::Call, std::uint32_t(function), arguments, until,
                     takeReleased(link))) {
        return Clock::now() >= until ? Received::TimedOut : Received::Closed;
    }
    for (;;) {
        const auto askFrom = Clock::now() + pingAfter;
        while (!waitReadable(link.socket, std::min(until, Clock::now() + lookEvery))) {
            const auto now = Clock::now();
            if (now >= until || hasStopped(link.generation)
                || (now >= askFrom && !isAlive(link.generation))) {
                return Received::TimedOut;
            }
        }
        const Received result = receiveMessage(link.socket, reply, until);
        if (result != Received::Message) {
            return result;
        }
        if (reply->kind == MessageKind::Event) {
            if (!deliver(*reply)) {
                return Received::Invalid;
            }
        } else if (reply->function != std::uint32_t(function)) {
            return Received::Invalid;
        } else if (reply->kind == MessageKind::Failed) {
            qWarning().noquote() << "device process:" << nameOf(function) << "threw"
                                 << QString::fromUtf8(reply->body);
            reply->body.clear();
            return Received::Message;
        } else {
            return reply->kind == MessageKind::Reply ? Received::Message : Received::Invalid;
        }
    }
}

/// Whether somebody has stopped the process. It wouldn't answer pings either, but this is known at
/// once.
bool DeviceHost::hasStopped(quint64 generation)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    siginfo_t change{};
    const bool hasStopped = generation == m_generation && m_pid > 0
        && waitid(P_PID, id_t(m_pid), &change, WSTOPPED | WNOHANG | WNOWAIT) == 0
        && change.si_pid == m_pid;
    if (hasStopped && m_endReason.isEmpty()) {
        m_endReason = QStringLiteral("it was stopped");
    }
    return hasStopped;
}

/**
 * Whether the process as a whole still does anything: it has a thread that answers pings at once,
 * so that one that is stopped, or starved of memory, is found long before the call's time is over.
 */
bool DeviceHost::isAlive(quint64 generation)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (generation != m_generation || m_control < 0) {
        return false;
    }
    const auto now = Clock::now();
    if (m_pinged == Clock::time_point()) {
        m_pinged = now;
        return sendMessage(m_control, MessageKind::Ping, 0, Writer(), now + pongLimit);
    }
    // An answer may be there that we have no time for: that is not the process's fault.
    const bool isLate =
        now - m_pinged > std::max(scaled(pongLimit, m_callFactor), milliseconds(500)) && !m_isTaking
        && !waitReadable(m_events, now);
    if (isLate && m_endReason.isEmpty()) {
        m_endReason = QStringLiteral("it doesn't react any more");
    }
    return !isLate;
}

void DeviceHost::rejectGarbage(FunctionId function, quint64 generation)
{
    end(generation, nameOf(function) + QStringLiteral(" was answered with garbage"));
}

/// Ends the process, unless it has been replaced already.
void DeviceHost::end(quint64 generation, const QString &reason)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (generation == m_generation && m_pid > 0) {
        if (m_endReason.isEmpty()) {
            m_endReason = reason;
        }
        kill(-m_pid, SIGKILL);
        kill(m_pid, SIGKILL);
    }
}

void DeviceHost::release(quint64 generation, std::uint64_t held)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (generation != m_generation || m_control < 0) {
        return;
    }
    const std::uint64_t former = std::exchange(m_toRelease, held);
    if (former != 0) { // no call has taken it along
        Writer content;
        content.value(former);
        sendMessage(m_control, MessageKind::Release, 0, content, Clock::now() + seconds(1));
    }
}

/// What the next call on this connection takes along.
std::uint64_t DeviceHost::takeReleased(const Connection &link)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return link.generation == m_generation ? std::exchange(m_toRelease, 0) : 0;
}

void DeviceHost::supervise()
{
    for (;;) {
        if (start()) {
            std::thread repeating(&DeviceHost::repeatSettings, this); // events come meanwhile
            takeEvents();
            OwedResults::instance().failAll(m_generation);
            repeating.join();
        }
        reap();
        forgetMappings();
        waitBeforeRestart();
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_state == State::Stopping) {
            return;
        }
        ++m_restarts;
        m_state = State::Starting;
    }
}

bool DeviceHost::start()
{
    int control[2] = {-1, -1};
    int events[2] = {-1, -1};
    pid_t pid = 0;
    int error = 0;
    if (!makeSocketPair(control) || !makeSocketPair(events) || !moveUp(&control[1])
        || !moveUp(&events[1])) {
        error = errno;
    } else {
        std::vector<QByteArray> environment = m_environment;
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            if (!m_folders.isNull()) {
                environment.push_back("DEVICEHOST_FOLDERS=" + m_folders);
            }
        }
        error = spawnHost(QFile::encodeName(m_program), environment, control[1], events[1], &pid);
    }
    closeDescriptor(&control[1]);
    closeDescriptor(&events[1]);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_started = Clock::now();
    m_isUp = false;
    m_lost.clear();
    if (error != 0) {
        closeDescriptor(&control[0]);
        closeDescriptor(&events[0]);
        m_endReason = QStringLiteral("can't be started: %1: %2")
                          .arg(m_program, QString::fromLocal8Bit(std::strerror(error)));
        return false;
    }
    ++m_generation;
    m_toRelease = 0;
    m_pid = pid;
    m_control = control[0];
    m_events = events[0];
    m_endReason.clear();
    m_pinged = {};
    m_changed.notify_all();
    qInfo("device process: started, process %d", int(pid));
    return m_state != State::Stopping;
}

/// Before anybody else's calls, on a connection of its own. Opens the way for those then.
void DeviceHost::repeatSettings()
{
    const bool isDone = waitUntilUp() && sendSettings();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (isDone && m_state == State::Starting) {
            m_state = State::Running;
        }
    }
    m_changed.notify_all();
}

/// Loading the libraries takes its time, more of it on a busy machine.
bool DeviceHost::waitUntilUp()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto isSettled = [this] { return m_isUp || m_state != State::Starting; };
    const milliseconds limit = m_startLimit;
    if (!m_changed.wait_for(lock, limit, isSettled)) {
        const quint64 generation = m_generation;
        lock.unlock();
        end(generation,
            QStringLiteral("it was not ready in %1 s").arg(double(limit.count()) / 1000));
        return false;
    }
    return m_isUp;
}

bool DeviceHost::sendSettings()
{
    Connection own;
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_generation == 1) {
            return true; // the first call of all sets what it sets
        }
        own.generation = m_generation;
        own.socket = newCaller(false);
    }
    const auto until = Clock::now() + m_startLimit.load();
    for (const KeptSettings::Setting &setting : m_settings.all()) {
        Writer arguments;
        arguments.raw(setting.arguments);
        Message reply;
        if (own.socket < 0
            || exchange(own, setting.function, arguments, until, &reply) != Received::Message) {
            // Once more might end the next process as well.
            m_settings.forget(setting);
            end(own.generation, nameOf(setting.function) + QStringLiteral(" was not answered"));
            return false;
        }
        closeDescriptor(&reply.descriptor);
    }
    return true;
}

/// The first one of a process says what its library lacks.
void DeviceHost::takePong(const Message &pong)
{
    constexpr int longest = 4096; // the names of all functions; the status has room for them
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_isUp) {
        Reader reader(pong);
        m_libraryError = reader.bytes().left(longest);
        m_missing = reader.bytes().left(longest);
    }
    m_pinged = {};
    m_isUp = true;
    m_isTaking = false;
    m_changed.notify_all();
}

/// On a busy machine a pong is late behind many events.
void DeviceHost::noteSignOfLife()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pinged != Clock::time_point()) {
        m_pinged = Clock::now();
    }
}

/// Until the process has gone, or floods us.
void DeviceHost::takeEvents()
{
    Message message;
    Clock::time_point second = Clock::now();
    int count = 0;
    while (receiveMessage(m_events, &message, Clock::time_point::max()) == Received::Message) {
        m_isTaking = true;
        if (Clock::now() - second > seconds(1)) {
            second = Clock::now();
            count = 0;
        }
        if (message.kind == MessageKind::Pong) {
            takePong(message);
            continue;
        }
        noteSignOfLife();
        const bool isLog = message.kind == MessageKind::Log;
        if (isLog) {
            logLine(message);
        }
        const bool isSound = isLog || (message.kind == MessageKind::Event && deliver(message));
        if (!isSound || ++count > eventsPerSecond) {
            end(m_generation,
                isSound
                    ? QStringLiteral("it sent more than %1 events in a second").arg(eventsPerSecond)
                    : QStringLiteral("it sent a damaged event"));
            break;
        }
        m_isTaking = false;
    }
    m_isTaking = false;
    closeDescriptor(&message.descriptor);
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_state == State::Starting) {
        m_state = State::Waiting; // it died before it was ready: nobody waits for that any longer
    }
    m_changed.notify_all();
}

QString DeviceHost::callsUnderWay() const
{
    QStringList names;
    for (const FunctionId function : m_lost) {
        names << nameOf(function);
    }
    for (const auto &call : m_underWay) {
        names << nameOf(call.second.function);
    }
    return names.isEmpty() ? QStringLiteral("no call") : names.join(QStringLiteral(", "));
}

/// Sees the process off, and says why it ended.
void DeviceHost::reap()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    QString how = m_endReason;
    const pid_t pid = m_pid;
    const bool wasSound = m_isUp && Clock::now() - m_started > scaled(soundAfter, m_pauseFactor);
    m_failuresInRow = wasSound ? 1 : m_failuresInRow + 1;
    if (m_state != State::Stopping) {
        // Calls wait for a process that comes at once, but for no other.
        m_state = m_failuresInRow == 1 ? State::Starting : State::Waiting;
    }
    closeDescriptor(&m_control);
    closeDescriptor(&m_events);
    if (pid > 0) {
        kill(-pid, SIGKILL); // its children; and itself, should it have closed its socket only
        lock.unlock();
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) { }
        lock.lock();
        m_pid = 0;
        if (how.isEmpty()) {
            how = WIFSIGNALED(status)
                ? QStringLiteral("signal %1, %2")
                      .arg(WTERMSIG(status))
                      .arg(QString::fromLocal8Bit(strsignal(WTERMSIG(status))))
                : QStringLiteral("status %1").arg(WEXITSTATUS(status));
        }
    }
    m_lastReason = QStringLiteral("%1: %2").arg(callsUnderWay(), how);
    if (m_state != State::Stopping) {
        qWarning().noquote() << QStringLiteral("device process: ended during %1 (%2); restart %3")
                                    .arg(callsUnderWay(), how)
                                    .arg(m_restarts + 1);
    }
    m_changed.notify_all();
}

/// None after the first failure; then 1, 2, 4 ... seconds while it keeps dying.
void DeviceHost::waitBeforeRestart()
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_failuresInRow == 1) {
        return;
    }
    const auto pause =
        std::min<seconds>(seconds(1 << std::min(m_failuresInRow - 2, 5)), longestPause);
    m_isPausing = true;
    m_changed.notify_all();
    m_changed.wait_for(lock, scaled(pause, m_pauseFactor),
                       [this] { return m_state == State::Stopping; });
    m_isPausing = false;
}

} // namespace deviceprocess
