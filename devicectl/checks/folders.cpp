// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

#include <QJsonArray>

#include <algorithm>

namespace checks {

namespace {

Finding programFolder(const Environment &environment)
{
    const QString folder = environment.places().files.program;
    const auto facts = environment.facts(folder);
    constexpr int writableByOthers = 022;
    if (!facts.exists) {
        return fault({"the program's folder %1 is missing", "缺少程序目录 %1"},
                     {"install the server", "请安装服务"}, folder);
    }
    return (facts.mode & writableByOthers) != 0
        ? fault({"others can replace the program: %1 is writable by them",
                 "其他用户可替换程序：%1 可被他们写入"},
                {"chmod go-w that folder", "对该目录执行 chmod go-w"}, folder)
        : good({"only its owner can change the program in %1", "只有所有者能修改 %1 中的程序"},
               folder);
}

/// Whether a folder can be made: its nearest parent that is there can be written.
bool canBeMade(const Environment &environment, const QString &folder)
{
    QString parent = folder;
    while (parent.size() > 1 && !environment.facts(parent).exists) {
        parent = parent.section(QLatin1Char('/'), 0, -2);
    }
    return environment.facts(parent).isWritable;
}

constexpr Text madeAtStart = {"the server makes %1 when it starts", "服务启动时会建立 %1"};

Finding dataFolder(const Environment &environment)
{
    const QString folder = environment.places().files.data;
    const auto facts = environment.facts(folder);
    if (!facts.exists && canBeMade(environment, folder)) {
        return good(madeAtStart, folder);
    }
    return facts.isWritable
        ? good({"the data folder is %1", "数据目录为 %1"}, folder)
        : fault({"nothing can be written in the data folder %1", "无法写入数据目录 %1"},
                {"give the server's user that folder, or start the server with --data-dir",
                 "请将该目录交给服务用户，或用 --data-dir 启动服务"},
                folder);
}

Finding logFolder(const Environment &environment)
{
    const QString folder = environment.places().log;
    const auto facts = environment.facts(folder);
    constexpr int anyOther = 077;
    if (!facts.exists && canBeMade(environment, folder)) {
        return good(madeAtStart, folder);
    }
    if (!facts.isWritable) {
        return fault({"the log can't be written in %1", "无法在 %1 中写日志"},
                     {"make the folder, owned by the server's user, mode 0700",
                      "请建立该目录，属主为服务用户，权限 0700"},
                     folder);
    }
    return (facts.mode & anyOther) != 0
        ? warning({"other users can read the log in %1", "其他用户可读取 %1 中的日志"},
                  {"chmod 0700 that folder", "对该目录执行 chmod 0700"}, folder)
        : good({"the log is written in %1", "日志写在 %1"}, folder);
}

Finding diskSpace(const Environment &environment)
{
    const qint64 free = environment.freeBytes(environment.places().log);
    const QString amount = QString::number(free / MiB);
    if (free < 256000000) { // QLog::minFreeBytes
        return fault(
            {"the disk has %1 MiB left: the log has stopped", "磁盘仅剩 %1 MiB：日志已停止"},
            {"delete what is not needed", "请清理磁盘"}, amount);
    }
    return free < GiB ? warning({"the disk has %1 MiB left", "磁盘仅剩 %1 MiB"},
                                {"delete what is not needed; below 256 MB the log stops",
                                 "请清理磁盘；低于 256 MB 时日志停止"},
                                amount)
                      : good({"the disk has %1 MiB left", "磁盘剩余 %1 MiB"}, amount);
}

Finding logSize(const Environment &environment)
{
    const QString folder = environment.places().log;
    qint64 size = 0;
    const auto names = environment.entries(folder);
    for (const QString &name : names) {
        size += environment.facts(folder + QLatin1Char('/') + name).size;
    }
    const QString amount = QString::number(size / MiB);
    return size > 5 * GiB ? warning({"the log takes %1 MiB", "日志占用 %1 MiB"},
                                    {"limit it by [log] max_mib in access.ini",
                                     "可在 access.ini 的 [log] max_mib 中限制"},
                                    amount)
                          : good({"the log takes %1 MiB", "日志占用 %1 MiB"}, amount);
}

/// Whether a line of the log is about something that keeps pages from working.
bool isSerious(const QByteArray &line)
{
    static const char *const marks[] = {"capture error", "device process: ended",
                                        "can't listen on port", "log: stopped"};
    return std::any_of(std::begin(marks), std::end(marks),
                       [&line](const char *mark) { return line.contains(mark); });
}

/// Lines, and the last one of them.
struct Lines
{
    int count = 0;
    QString last{};

    void add(const QByteArray &line)
    {
        ++count;
        last = QString::fromUtf8(line.left(160));
    }
    QString text() const { return QStringLiteral("%1, \"%2\"").arg(count).arg(last); }
};

Finding logErrors(const Environment &environment)
{
    constexpr int manyWarnings = 5;
    const QDate yesterday = environment.now().date().addDays(-1);
    Lines serious;
    Lines warnings;
    const auto problems = statusMember(environment, "problems").toArray();
    for (const QJsonValue &value : problems) {
        const QJsonObject problem = value.toObject();
        const auto text = [&problem](const char *name) {
            return problem.value(QLatin1String(name)).toString();
        };
        const QByteArray line = text("text").toUtf8();
        if (QDateTime::fromString(text("time"), Qt::ISODateWithMs).date() >= yesterday
            && !isSerious(line)) { // those are in the files
            (text("level") == QLatin1String("error") ? serious : warnings).add(line);
        }
    }
    for (int daysAgo : {1, 0}) {
        const QByteArray log = logOfDay(environment, environment.now().date().addDays(-daysAgo));
        for (int start = 0, end = 0; start < log.size(); start = end + 1) {
            end = log.indexOf('\n', start);
            end = end < 0 ? log.size() : end;
            const auto line = QByteArray::fromRawData(log.constData() + start, end - start);
            if (isSerious(line)) {
                serious.add(line);
            }
        }
    }
    constexpr Text readIt = {"read the log around the last one", "请查看最后一条附近的日志"};
    if (serious.count > 0) {
        return warning(
            {"serious lines in the log since yesterday: %1", "昨天以来日志中的严重错误：%1"},
            readIt, serious.text());
    }
    return warnings.count >= manyWarnings
        ? warning({"warnings in the log since yesterday: %1", "昨天以来日志中的警告：%1"}, readIt,
                  warnings.text())
        : good({"no serious line in the log since yesterday", "昨天以来日志中没有严重错误"});
}

} // namespace

std::vector<Check> folderChecks()
{
    return {
        {"program-folder", {"program folder", "程序目录"}, programFolder},
        {"data-folder", {"data folder", "数据目录"}, dataFolder},
        {"log-folder", {"log folder", "日志目录"}, logFolder},
        {"disk", {"disk space", "磁盘空间"}, diskSpace},
        {"log-size", {"log size", "日志大小"}, logSize},
        {"log-errors", {"log", "日志错误"}, logErrors},
    };
}

} // namespace checks
