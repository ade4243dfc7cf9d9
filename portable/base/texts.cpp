// SPDX-License-Identifier: MIT
#include "portable/base/texts.h"

#include <QDebug>

namespace portable {

QString logText(const QString &text)
{
    constexpr int longest = 300;
    const bool isLong = text.size() > longest;
    QString result;
    QDebug(&result).nospace() << text.left(longest); // escapes line breaks, which forge lines
    return isLong ? result + QStringLiteral("...") : result;
}

} // namespace portable
