// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"

#include <QRegularExpression>

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

Finding tooLate(const char *program)
{
    return warning({"unknown, as %1 did not end in time", "未知，%1 没有及时结束"},
                   {"run it by hand, and look why it hangs", "请手动运行，查看为何没有响应"},
                   QLatin1String(program));
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

QString setting(const Environment &environment, const char *file, const char *key)
{
    const QRegularExpression line(
        QStringLiteral(R"(^ *%1 *= *"?([^"\r\n]+))").arg(QLatin1String(key)),
        QRegularExpression::MultilineOption);
    const QString path = environment.places().files.find(QLatin1String(file));
    return line.match(QString::fromUtf8(environment.end(path))).captured(1).trimmed();
}

QByteArray logOfDay(const Environment &environment, const QDate &day)
{
    const QString folder = environment.places().log;
    const QString name = QStringLiteral("vx_log_") + day.toString(QStringLiteral("yyyy-MM-dd"));
    QStringList names; // the newest first: "DAY.txt", then those that were full, "DAY-hhmmss.txt"
    const auto entries = environment.entries(folder);
    for (const QString &entry : entries) {
        if (entry.startsWith(name + QLatin1Char('-'))) {
            names.prepend(entry);
        }
    }
    names.prepend(name + QLatin1String(".txt"));
    QByteArray log;
    for (int i = 0; i < names.size() && log.size() < 16 * MiB; ++i) {
        log.prepend(environment.end(folder + QLatin1Char('/') + names[i], 16 * MiB - log.size()));
    }
    return log;
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
