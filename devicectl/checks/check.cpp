// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"

namespace checks {

Finding good(const Text &meaning, const QString &value)
{
    const QString text = said(meaning);
    return {Finding::Level::Good, text.contains(QLatin1String("%1")) ? text.arg(value) : text, {}};
}

Finding bad(Finding::Level level, const Text &meaning, const Text &advice, const QString &value)
{
    const QString text = said(meaning);
    return {level, text.contains(QLatin1String("%1")) ? text.arg(value) : text, said(advice)};
}

Finding warning(const Text &meaning, const Text &advice, const QString &value)
{
    return bad(Finding::Level::Warning, meaning, advice, value);
}

Finding fault(const Text &meaning, const Text &advice, const QString &value)
{
    return bad(Finding::Level::Fault, meaning, advice, value);
}

namespace {

constexpr Text noStatus = {"unknown, as the server does not answer", "未知，服务没有应答"};

} // namespace

Finding unknown()
{
    return warning(noStatus, startIt);
}

QString join(const QStringList &list)
{
    return list.join(QStringLiteral(", "));
}

QJsonValue member(const QJsonObject &status, const char *object, const char *name)
{
    return status.value(QLatin1String(object)).toObject().value(QLatin1String(name));
}

bool isServer(const Environment::Process &process)
{
    const QString program = process.commandLine.section(QLatin1Char(' '), 0, 0);
    return program.section(QLatin1Char('/'), -1) == QLatin1String("rvowebSocketServer");
}

} // namespace checks
