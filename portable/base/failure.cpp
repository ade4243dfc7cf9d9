// SPDX-License-Identifier: MIT
#include "portable/base/failure.h"

#include "base/logtext.h"

#include <QtDebug>

namespace portable {

LogLine::LogLine(QtMsgType type)
    : m_type(type)
    , m_stream(&m_text)
{
    m_stream.noquote();
}

LogLine::~LogLine()
{
    m_text.chop(m_text.endsWith(QLatin1Char(' ')) ? 1 : 0); // QDebug puts one after each value
    const QByteArray line = base::oneLine(m_text).toUtf8();
    if (m_type == QtWarningMsg) {
        qWarning("portable: %s", line.constData());
    } else {
        qInfo("portable: %s", line.constData());
    }
}

bool logFailure(const QString &subject, const QString &why)
{
    constexpr int maxLength = 1000;
    const QString shown = why.size() <= maxLength
        ? why
        : why.left(maxLength / 2) + QStringLiteral("...") + why.right(maxLength / 2);
    logWarning() << subject + QStringLiteral(": ") + shown;
    return false;
}

bool logFailure(const char *subject, const QString &why)
{
    return logFailure(QString::fromUtf8(subject), why);
}

bool setError(const QString &why, QString *error)
{
    *error = why;
    return false;
}

bool prefixError(const QString &subject, QString *error)
{
    return setError(subject + QStringLiteral(": ") + *error, error);
}

} // namespace portable
