// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"

#include <QString>

/// Logs why pages are refused, some lines a second: whoever is refused can come again at once.
class RefusalLog
{
public:
    explicit RefusalLog(int linesPerSecond)
        : m_linesPerSecond(linesPerSecond)
    {
    }

    /// Writes a line, or counts it if this second has had its lines.
    void write(const QString &line);

    /// Tells how many lines the past second has left out. To be called now and then.
    void flush();

private:
    int m_linesPerSecond;
    int m_lines = 0;
    qint64 m_leftOut = 0;
    base::Clock::TimePoint m_second{};
};
