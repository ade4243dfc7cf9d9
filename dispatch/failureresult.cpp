// SPDX-License-Identifier: MIT
#include "dispatch/failureresult.h"

#include <QHash>

std::optional<QString> failureResult(const QString &command)
{
    static const QHash<QString, const char *> results{
#define COMMAND(command, failure, ...) {QStringLiteral(#command), failure},
#include "dispatch/commandlist.h"
    };
    const char *const result = results.value(command, nullptr);
    return result ? std::make_optional(QString::fromUtf8(result)) : std::nullopt;
}
