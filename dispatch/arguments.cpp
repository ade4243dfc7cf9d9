// SPDX-License-Identifier: MIT
#include "dispatch/arguments.h"

QStringRef Arguments::field(int index) const
{
    if (index < 0) {
        return {};
    }
    int begin = 0;
    for (; index > 0; --index) {
        const int comma = m_text.indexOf(QLatin1Char(','), begin);
        if (comma < 0) {
            return {};
        }
        begin = comma + 1;
    }
    const int end = m_text.indexOf(QLatin1Char(','), begin);
    return m_text.midRef(begin, end < 0 ? -1 : end - begin);
}

const char *Arguments::keep(QByteArray text) const
{
    m_kept.push_back(std::move(text));
    return m_kept.back().constData();
}
