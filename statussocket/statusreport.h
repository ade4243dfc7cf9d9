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
    QString folder;
};

/**
 * How the server is, as one JSON object (docs/devicectl.md has its members). Calls nothing of the
 * device library, and hardly waits: the main thread is asked for what it owns, and when it doesn't
 * answer at once, the report has what it said the last time, and the command that keeps it busy.
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

    /// The report in UTF-8, a line. From any thread but the main one, one call at a time.
    QByteArray make();

private:
    struct Shared;

    const Program m_program;
    QElapsedTimer m_started;
    const std::shared_ptr<Shared> m_shared;
};

} // namespace statussocket
