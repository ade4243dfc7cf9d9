// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QtDebug>

#include <exception>

namespace portable {

/**
 * Says in the log why an exported function fails: one line that names it.
 * \return false, what such functions return then
 */
inline bool failed(const char *function, const QString &why)
{
    qWarning("portable: %s: %s", function, qUtf8Printable(why));
    return false;
}

/**
 * Runs the body of an exported function that no exception may leave: OpenCV's, other libraries', or
 * too little memory. \return what it returns, or false or null, with a line in the log
 */
template <class Body> auto guarded(const char *function, Body body) -> decltype(body())
{
    try {
        return body();
    } catch (const std::exception &failure) {
        failed(function, QString::fromLocal8Bit(failure.what()));
        return {};
    }
}

} // namespace portable
