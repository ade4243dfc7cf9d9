// SPDX-License-Identifier: MIT
/// \file How the portable library reports failures: in the log, or to its caller.
#pragma once

#include <QDebug>
#include <QString>

#include <exception>

namespace portable {

/**
 * A log line of the library, "portable: a b c", written at the end of the statement:
 * `logWarning() << cameraName(number) << "is lost:" << why;`. Texts are printed without quotes,
 * with whatever could forge a line escaped (base::oneLine()): they may come from a page or a
 * device.
 */
class LogLine
{
public:
    explicit LogLine(QtMsgType type);
    ~LogLine();
    Q_DISABLE_COPY(LogLine)

    template <class Value> LogLine &operator<<(const Value &value)
    {
        m_stream << value;
        return *this;
    }

private:
    const QtMsgType m_type;
    QString m_text;
    QDebug m_stream; // into m_text
};

/// A line about a fault.
inline LogLine logWarning()
{
    return LogLine(QtWarningMsg);
}

/// A line about what is going on.
inline LogLine logInfo()
{
    return LogLine(QtInfoMsg);
}

/**
 * Logs why something fails, in one line "portable: subject: why". A very long reason, which holds
 * a path from a page, is shortened in the middle; what could forge a line is escaped.
 * \param subject  the exported function, the file or the device
 * \return false, what such functions return then
 */
bool logFailure(const QString &subject, const QString &why);

/// The same; for `__func__`.
bool logFailure(const char *subject, const QString &why);

/// Gives the caller the reason. \return false
bool setError(const QString &why, QString *error);

/// Puts what failed before the reason that `*error` holds: "subject: reason". \return false
bool prefixError(const QString &subject, QString *error);

/**
 * Runs the body of an exported function, from which no exception may escape: OpenCV's, those of
 * other libraries, or std::bad_alloc.
 * \return what it returns; after an exception, which is logged, false, 0 or null
 */
template <class Body> auto guarded(const char *function, Body body) -> decltype(body())
{
    try {
        return body();
    } catch (const std::exception &failure) {
        logFailure(function, QString::fromLocal8Bit(failure.what()));
    } catch (...) {
        logFailure(function, QStringLiteral("something that is no std::exception was thrown"));
    }
    return decltype(body())();
}

} // namespace portable
