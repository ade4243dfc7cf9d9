// SPDX-License-Identifier: MIT
#include "portable/base/failure.h"

#include <QtDebug>

namespace portable {

bool logFailure(const QString &subject, const QString &why)
{
    constexpr int maxLength = 1000;
    const QString shown = why.size() <= maxLength
        ? why
        : why.left(maxLength / 2) + QStringLiteral("...") + why.right(maxLength / 2);
    qWarning("portable: %s: %s", qUtf8Printable(subject), qUtf8Printable(shown));
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
