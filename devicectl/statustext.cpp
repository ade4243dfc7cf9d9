// SPDX-License-Identifier: MIT
#include "devicectl/statustext.h"

#include "devicectl/texts.h"

#include <QJsonArray>

namespace {

QString number(const QJsonValue &value, int decimals = 0)
{
    return QString::number(value.toDouble(), 'f', decimals);
}

QString mebibytes(const QJsonValue &kibibytes)
{
    return number(kibibytes.toDouble() / 1024, 1);
}

/// "25 s", "4 h 5 min", "3 d 4 h".
QString durationText(double seconds)
{
    const auto whole = qint64(seconds);
    const auto two = [](qint64 large, const Text &one, qint64 small, const Text &other) {
        return QStringLiteral("%1 %2 %3 %4").arg(large).arg(said(one)).arg(small).arg(said(other));
    };
    constexpr Text minutes = {"min", "分"};
    constexpr Text hours = {"h", "小时"};
    if (whole < 60) {
        return QStringLiteral("%1 %2").arg(whole).arg(said({"s", "秒"}));
    }
    if (whole < 3600) {
        return two(whole / 60, minutes, whole % 60, {"s", "秒"});
    }
    return whole < 86400 ? two(whole / 3600, hours, whole / 60 % 60, minutes)
                         : two(whole / 86400, {"d", "天"}, whole / 3600 % 24, hours);
}

QString cameraLine(const QJsonObject &camera)
{
    const auto at = [&camera](const char *name) { return camera.value(QLatin1String(name)); };
    if (at("source").toInt() == 0) {
        return said({"camera: closed", "摄像头：未打开"});
    }
    return said({"camera: %1, preview %2 x %3, %4 frames a second, dropped %5, failed %6; "
                 "a frame takes %7 + %8 + %9 ms (fetch, encode, send)",
                 "摄像头：%1，预览 %2 x %3，每秒 %4 帧，丢弃 %5，失败 %6；"
                 "每帧耗时 %7 + %8 + %9 毫秒（读取、编码、发送）"})
        .arg(number(at("source")), number(at("width")), number(at("height")),
             number(at("framesPerSecond"), 1), number(at("framesDropped")),
             number(at("framesFailed")), number(at("fetchMs"), 1), number(at("encodeMs"), 1),
             number(at("sendMs"), 1));
}

QStringList deviceLines(const QJsonObject &process)
{
    const auto at = [&process](const char *name) { return process.value(QLatin1String(name)); };
    if (process.isEmpty() || at("inside").toBool()) {
        return {said({"device library: inside the server", "设备库：在服务进程内"})};
    }
    if (at("busy").toBool()) {
        return {said({"device process: busy", "设备进程：忙"})};
    }
    const QString state = at("pid").toInt() > 0
        ? said({"process %1, running for %2, %3 MiB", "进程 %1，已运行 %2，%3 MiB"})
              .arg(number(at("pid")), durationText(at("runningSeconds").toDouble()),
                   mebibytes(at("residentKiB")))
        : said({"not running", "未运行"});
    QStringList lines{said({"device process: %1, %2, restarts %3", "设备进程：%1，%2，重启 %3 次"})
                          .arg(at("library").toString(), state, number(at("restarts")))};
    if (!at("lastReason").toString().isEmpty()) {
        lines << said({"  last end: %1", "  上次退出：%1"}).arg(at("lastReason").toString());
    }
    const auto calls = at("calls").toArray();
    for (const QJsonValue &call : calls) {
        lines << said({"  call under way: %1, for %2 ms", "  正在调用：%1，已 %2 毫秒"})
                     .arg(call.toObject().value(QStringLiteral("function")).toString(),
                          number(call.toObject().value(QStringLiteral("forMs"))));
    }
    return lines;
}

QString pageLine(const QJsonObject &page)
{
    const auto at = [&page](const char *name) { return page.value(QLatin1String(name)); };
    return said({"  %1 %2: %3 frames, %4 dropped, %7 ms old (99 %: %8), %5 bytes waiting, last "
                 "command %6",
                 "  %1 %2：%3 帧，丢弃 %4，延迟 %7 毫秒（99 %：%8），待读 %5 字节，最后命令 %6"})
        .arg(at("address").toString(),
             at("origin").toString().isEmpty() ? QStringLiteral("-") : at("origin").toString(),
             number(at("framesSent")), number(at("framesDropped")), number(at("bytesWaiting")),
             at("lastCommand").toString(), number(at("frameAgeMs"), 1),
             number(at("oldestFrameMs"), 1));
}

} // namespace

QStringList statusLines(const QJsonObject &status)
{
    const auto at = [&status](const char *name) { return status.value(QLatin1String(name)); };
    const auto text = [&at](const char *name) { return at(name).toString(); };
    const QJsonObject mainThread = at("mainThread").toObject();
    const QJsonObject access = at("access").toObject();
    QStringList lines{
        said({"server %1 (%2), process %3, running for %4, %5 MiB",
              "服务 %1（%2），进程 %3，已运行 %4，%5 MiB"})
            .arg(text("version"), text("built"), number(at("pid")),
                 durationText(at("uptimeSeconds").toDouble()),
                 mebibytes(at("memory").toObject().value(QStringLiteral("residentKiB"))))};
    if (!mainThread.value(QStringLiteral("command")).toString().isEmpty()) {
        lines << said({"busy with %1 for %2 ms", "正在执行 %1，已 %2 毫秒"})
                     .arg(mainThread.value(QStringLiteral("command")).toString(),
                          number(mainThread.value(QStringLiteral("forMs"))));
    }
    lines << cameraLine(at("camera").toObject()) << deviceLines(at("deviceProcess").toObject());
    lines << said({"simulation: %1; access policy: %2; texts waiting: %3 bytes",
                   "模拟：%1；访问策略：%2；等待执行的文本：%3 字节"})
                 .arg(at("simulation").toBool() ? said({"on", "开"}) : said({"off", "关"}),
                      (access.value(QStringLiteral("mode")).toString() + QLatin1Char(' ')
                       + access.value(QStringLiteral("file")).toString())
                          .trimmed(),
                      number(at("queues").toObject().value(QStringLiteral("bytesOfTexts"))));
    const auto pages = at("pages").toArray();
    lines << said({"pages: %1", "网页：%1"}).arg(at("pageCount").toInt());
    for (const QJsonValue &page : pages) {
        lines << pageLine(page.toObject());
    }
    const auto problems = at("problems").toArray();
    lines << said({"latest warnings and errors: %1", "最近的警告和错误：%1"}).arg(problems.size());
    for (const QJsonValue &value : problems) {
        const QJsonObject problem = value.toObject();
        lines << QStringLiteral("  %1 %2 %3")
                     .arg(problem.value(QStringLiteral("time")).toString(),
                          problem.value(QStringLiteral("level")).toString(),
                          problem.value(QStringLiteral("text")).toString());
    }
    return lines;
}
