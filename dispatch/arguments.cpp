// SPDX-License-Identifier: MIT
#include "dispatch/arguments.h"

Arguments::Arguments(const QString &text)
    : m_text(text)
    , m_fields(m_text.splitRef(QLatin1Char(',')))
{
}

const char *Arguments::keep(QByteArray text) const
{
    m_kept.push_back(std::move(text));
    return m_kept.back().constData();
}
