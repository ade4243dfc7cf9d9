// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"

namespace checks {

namespace {

constexpr Text noStatus = {"unknown, as the server does not answer", "未知，服务没有应答"};

QString filled(const Text &meaning, const QString &value)
{
    const QString text = said(meaning);
    return text.contains(QLatin1String("%1")) ? text.arg(value) : text;
}

} // namespace

Finding good(const Text &meaning, const QString &value)
{
    return {Finding::Level::Good, filled(meaning, value), {}};
}

Finding bad(Finding::Level level, const Text &meaning, const Text &advice, const QString &value)
{
    return {level, filled(meaning, value), said(advice)};
}

Finding warning(const Text &meaning, const Text &advice, const QString &value)
{
    return bad(Finding::Level::Warning, meaning, advice, value);
}

Finding fault(const Text &meaning, const Text &advice, const QString &value)
{
    return bad(Finding::Level::Fault, meaning, advice, value);
}

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

QJsonValue statusMember(const Environment &environment, const char *name)
{
    const auto status = environment.status();
    return status ? status->value(QLatin1String(name)) : QJsonValue(QJsonValue::Undefined);
}

QByteArray logOfDay(const Environment &environment, const QDate &day)
{
    return environment.end(
        QStringLiteral("%1/vx_log_%2.txt")
            .arg(environment.places().log, day.toString(QStringLiteral("yyyy-MM-dd"))),
        4 * MiB);
}

bool isProgram(const Environment::Process &process, const char *name)
{
    const QString program = process.commandLine.section(QLatin1Char(' '), 0, 0);
    return program.section(QLatin1Char('/'), -1) == QLatin1String(name);
}

bool isServer(const Environment::Process &process)
{
    return isProgram(process, "rvowebSocketServer");
}

} // namespace checks
