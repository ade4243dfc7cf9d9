// SPDX-License-Identifier: MIT
#pragma once

#include "deviceprocess/stub/keptsettings.h"

#include <QByteArray>
#include <QString>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace deviceprocess {

/// What the device process has time for.
struct TimeLimits
{
    double callFactor = 1; ///< Of the times that functions.h gives to calls.
    double pauseFactor = 1; ///< Of the pauses between restarts.
    std::chrono::milliseconds start{10000}; ///< For loading the libraries and repeating settings.
};

/// Calls a listener with what an event says. \return false when the event is damaged
using Deliver = bool (*)(Reader &reader);

/**
 * The device process, seen from the server: starts it at the first call, carries calls to it and
 * events back, ends it when it doesn't answer, and starts it again. Callable from any thread.
 *
 * A call has a connection of its own thread; threads don't wait for each other. A thread of this
 * class takes events and lines for the log, and listeners are called on it, but for those that the
 * library calls during a call and on its thread.
 */
class DeviceHost
{
public:
    using Clock = std::chrono::steady_clock;

    static DeviceHost &instance();

    /// \param program  path of the program to start
    explicit DeviceHost(const QString &program);
    ~DeviceHost() { stop(); }
    DeviceHost(const DeviceHost &) = delete;
    DeviceHost &operator=(const DeviceHost &) = delete;

    /// Starts the process already, if none has been. Returns when it has its own program and name.
    void begin();

    /**
     * Carries a call out.
     * \param kind       settings are kept, and repeated to a new process
     * \param reply      what the host answered; its body holds result and outputs
     * \return false, with a line in the log, when there is no answer: the process ended, was too
     *         slow, or could not be started
     */
    bool call(FunctionId function, FunctionKind kind, const Writer &arguments, Message *reply);

    /// The process has sent what can't be: it is ended, and the calls under way fail.
    void rejectGarbage(FunctionId function, quint64 generation);

    /**
     * Gives a held picture back: with the next call, which saves a message for each frame of a
     * preview. Nothing for those of a process that has gone.
     */
    void release(quint64 generation, std::uint64_t held);

    /// Ends the process; calls fail from then on, and no listener is called any more.
    void stop();

    /// For what begins from now on.
    void setTimeLimits(const TimeLimits &limits);
    TimeLimits timeLimits() const { return {m_callFactor, m_pauseFactor, m_startLimit}; }

    /// Sets what the program finds in its environment as well, "NAME=value" each.
    void setEnvironment(std::vector<QByteArray> variables) { m_environment = std::move(variables); }

    /**
     * Restricts the process to folders, one a line, "r /path", "w /path" or "d /path" to read,
     * write or delete in; null: it is not restricted. Replaces a process that runs if that changes.
     */
    void setFolders(const QByteArray &folders);

    /// Of the process that gave the latest reply to this thread; see release().
    static quint64 generationOfThread();

    /// Process id; 0 while none runs.
    pid_t processId() const;

    /// How often it was started after the first time.
    int restarts() const;

    /// The process, for the status of the server.
    struct Status
    {
        struct Call
        {
            const char *function;
            std::chrono::milliseconds since;
        };

        pid_t pid = 0; ///< 0 while none runs
        int restarts = 0;
        QByteArray lastReason; ///< why the last one ended, in UTF-8; empty: none has
        QByteArray libraryError; ///< why a library can't be loaded, in UTF-8; empty: both are
        /// functions that the libraries don't have; nullopt until a process has said it
        std::optional<QByteArray> missing;
        std::chrono::milliseconds running{}; ///< since when it does
        std::vector<Call> calls; ///< under way
    };

    /**
     * Calls nothing of the library, and waits for at most a millisecond or two: the lock is held
     * while something is sent to the process.
     * \return nullopt when it would take longer
     */
    std::optional<Status> status() const;

private:
    enum class State { Idle, Starting, Running, Waiting, Stopping };
    struct Connection;

    void beginLocked();
    std::shared_ptr<Connection> connection();
    bool isUsable(const Connection &connection) const;
    int newCaller(bool isMainThread);
    Clock::time_point deadline(FunctionId function) const;
    std::uint64_t takeReleased(const Connection &connection);
    Received exchange(Connection &connection, FunctionId function, const Writer &arguments,
                      Clock::time_point until, Message *reply);
    bool attempt(FunctionId function, const Writer &arguments, Message *reply);
    bool isReplaced(quint64 generation, Clock::time_point until);
    bool hasStopped(quint64 generation);
    bool isAlive(quint64 generation);
    void end(quint64 generation, const QString &reason);

    void supervise();
    bool start();
    void repeatSettings();
    bool waitUntilUp();
    bool sendSettings();
    void takePong(const Message &pong);
    void noteSignOfLife();
    void takeEvents();
    void reap();
    QString callsUnderWay() const;
    void waitBeforeRestart();

    const QString m_program;
    std::atomic<double> m_callFactor{TimeLimits().callFactor};
    std::atomic<double> m_pauseFactor{TimeLimits().pauseFactor};
    std::atomic<std::chrono::milliseconds> m_startLimit{TimeLimits().start};
    std::atomic<bool> m_isTaking{false}; ///< The supervisor is busy with an event.
    std::vector<QByteArray> m_environment;
    QByteArray m_folders; ///< Guarded by m_mutex.
    KeptSettings m_settings;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::thread m_supervisor;
    State m_state = State::Idle; // guarded by m_mutex, as all below
    quint64 m_generation = 0; ///< Counts the processes.
    pid_t m_pid = 0;
    int m_control = -1; ///< New callers, and pictures given back that no call takes along.
    std::uint64_t m_toRelease = 0; ///< The picture that the next call gives back; 0: none.
    int m_events = -1; ///< Used by the supervisor alone while it is open.
    QString m_endReason; ///< Why this process was ended by us; empty: it ended by itself.
    int m_restarts = 0;
    int m_failuresInRow = 0;
    Clock::time_point m_started;
    bool m_isUp = false; ///< Whether this process has said that it is ready.
    /// When the oldest ping without an answer was sent, or the last event since; else unset.
    Clock::time_point m_pinged;
    bool m_isPausing = false; ///< Between two processes, as they keep dying.
    QString m_lastReason; ///< Why the process before this one ended.
    QByteArray m_libraryError; ///< As in Status.
    std::optional<QByteArray> m_missing;
    struct UnderWay
    {
        FunctionId function;
        Clock::time_point since;
    };
    std::map<std::thread::id, UnderWay> m_underWay;
    std::vector<FunctionId> m_lost; ///< Calls that failed with this process.
};

/// How an event of each function gets to its listener; made from functions.h.
extern const std::array<Deliver, functionCount> deliverers;

} // namespace deviceprocess
