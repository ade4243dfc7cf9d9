// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"

#include <QString>

/// Logs why pages are refused, some lines a second: whoever is refused can come again at once.
class RefusalLog
{
public:
    /// \param room  what each line begins with; must live as long as the program
    RefusalLog(const char *room, int linesPerSecond)
        : m_room(room)
        , m_linesPerSecond(linesPerSecond)
    {
    }

    /// Writes a line, or counts it if this second has had its lines.
    void write(const QString &line);

    /// Tells how many lines the past second has left out. To be called now and then.
    void flush();

private:
    const char *m_room;
    int m_linesPerSecond;
    int m_lines = 0;
    qint64 m_leftOut = 0;
    base::Clock::TimePoint m_second{};
};
