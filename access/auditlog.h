// SPDX-License-Identifier: MIT
#pragma once

#include "access/auditevent.h"
#include "base/clock.h"

#include <QByteArray>
#include <QFile>
#include <QString>

namespace accesspolicy {

/**
 * The audit: one JSON object a line, in a file for this user only. Each line carries the SHA-256 of
 * the one before as "prev", so that nobody changes or removes a line without changing all behind
 * it; `scripts/verify-audit` checks that. The file is rotated by size: audit.log.1 is the newest of
 * the old ones.
 *
 * A file that can't be written is said in the log, once, and does not stop the server.
 */
class AuditLog
{
public:
    struct Settings
    {
        QString path; ///< empty: nothing is written
        qint64 longest = 0; ///< bytes, of a file that is then rotated
        int keep = 0; ///< rotated files
        bool isChained = true;

        bool operator==(const Settings &other) const;
    };

    /// Lines a second; what is beyond is only counted: whoever is refused can come again at once.
    static constexpr int linesPerSecond = 200;

    /// Goes on with the chain of the file, if there is one.
    void open(const Settings &settings);

    /// Whether anything is written.
    bool isWanted() const { return !m_settings.path.isEmpty(); }

    /// Writes an event, with its time and number.
    void write(AuditEvent event);

private:
    void writeNow(AuditEvent event);
    void openFile();
    void takeUpChain();
    QByteArray timeText();
    void rotate();

    Settings m_settings;
    QFile m_file;
    QByteArray m_previous; // hash of the last line
    qint64 m_number = 0; // of the last line
    qint64 m_timeSecond = -1; // since the epoch, of m_time
    QByteArray m_time; // "2026-11-22T02:11:38", which takes longer to make than all the rest
    qint64 m_size = 0; // of the file
    bool m_isBroken = false; // and that has been said
    base::Clock::TimePoint m_second{};
    int m_lines = 0; // of this second
    qint64 m_leftOut = 0;
};

} // namespace accesspolicy
