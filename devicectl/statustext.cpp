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
    QStringList lines{said({"device process: %1, %2, %3 MiB, restarts %4 %5",
                            "设备进程：%1，%2，%3 MiB，重启 %4 次 %5"})
                          .arg(number(at("pid")), at("library").toString(),
                               mebibytes(at("residentKiB")), number(at("restarts")),
                               at("lastReason").toString())
                          .trimmed()};
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
    return said({"  %1 %2: %3 frames, %4 dropped, %5 bytes waiting, last command %6",
                 "  %1 %2：%3 帧，丢弃 %4，待读 %5 字节，最后命令 %6"})
        .arg(at("address").toString(),
             at("origin").toString().isEmpty() ? QStringLiteral("-") : at("origin").toString(),
             number(at("framesSent")), number(at("framesDropped")), number(at("bytesWaiting")),
             at("lastCommand").toString());
}

} // namespace

QStringList statusLines(const QJsonObject &status)
{
    const auto at = [&status](const char *name) { return status.value(QLatin1String(name)); };
    const auto text = [&at](const char *name) { return at(name).toString(); };
    const QJsonObject mainThread = at("mainThread").toObject();
    QStringList lines{
        said({"server %1 (%2), process %3, running for %4 s, %5 MiB",
              "服务 %1（%2），进程 %3，已运行 %4 秒，%5 MiB"})
            .arg(text("version"), text("built"), number(at("pid")), number(at("uptimeSeconds")),
                 mebibytes(at("memory").toObject().value(QStringLiteral("residentKiB"))))};
    if (!mainThread.value(QStringLiteral("command")).toString().isEmpty()) {
        lines << said({"busy with %1 for %2 ms", "正在执行 %1，已 %2 毫秒"})
                     .arg(mainThread.value(QStringLiteral("command")).toString(),
                          number(mainThread.value(QStringLiteral("forMs"))));
    }
    lines << cameraLine(at("camera").toObject()) << deviceLines(at("deviceProcess").toObject());
    lines << said({"simulation: %1; access policy: %2 %3; texts waiting: %4 bytes",
                   "模拟：%1；访问策略：%2 %3；等待执行的文本：%4 字节"})
                 .arg(at("simulation").toBool() ? said({"on", "开"}) : said({"off", "关"}),
                      at("access").toObject().value(QStringLiteral("mode")).toString(),
                      at("access").toObject().value(QStringLiteral("file")).toString(),
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
