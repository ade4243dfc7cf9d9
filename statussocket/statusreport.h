// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QString>

#include <memory>

namespace accesspolicy {
class AccessControl;
}
class WebSocketServerManager;

namespace statussocket {

/// The program that the status is of.
struct Program
{
    QString version;
    QString built; ///< date and time
    QString folder; ///< of the program
    QString dataFolder;
    QString logFolder;
};

/**
 * The state of the server as one JSON object; docs/devicectl.md lists its members. Calls nothing of
 * the device library and waits for nobody longer than some milliseconds: the main thread is asked
 * for what it owns, and when it doesn't answer, the report has its former answer, and the command
 * that keeps it busy.
 *
 * Made and destroyed on the main thread.
 */
class StatusReport
{
public:
    /// Both must outlive it.
    StatusReport(Program program, const WebSocketServerManager &manager,
                 const accesspolicy::AccessControl &access);
    ~StatusReport();

    /// The pages that are listed one by one.
    static constexpr int mostPages = 100;

    /// The report in UTF-8, one line. From any thread but the main one, one call at a time.
    QByteArray make();

private:
    struct Shared;
    struct MainThreadPart;

    void askMainThread() const;

    const Program m_program;
    QElapsedTimer m_started;
    const std::shared_ptr<Shared> m_shared;
};

} // namespace statussocket
