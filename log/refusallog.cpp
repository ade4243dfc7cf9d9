// SPDX-License-Identifier: MIT
#include "log/refusallog.h"

#include <QDebug>

void RefusalLog::write(const QString &line)
{
    flush();
    if (m_lines >= m_linesPerSecond) {
        ++m_leftOut;
        return;
    }
    ++m_lines;
    qWarning().noquote().nospace() << m_room << ": " << line;
}

void RefusalLog::flush()
{
    const auto now = base::Clock::shared().now();
    if (now - m_second < std::chrono::seconds(1)) {
        return;
    }
    if (m_leftOut > 0) {
        qWarning().nospace() << m_room << ": " << m_leftOut
                             << " more lines like these were left out";
    }
    m_second = now;
    m_lines = 0;
    m_leftOut = 0;
}
