// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QtDebug>

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

} // namespace portable
