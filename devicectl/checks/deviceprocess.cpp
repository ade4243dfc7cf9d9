// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

#include <QJsonArray>

namespace checks {

namespace {

/// Of a check that needs what the device process has not said.
Finding notKnownYet()
{
    return warning(
        {"not known yet, the device process has not said it", "暂时未知，设备进程尚未报告"},
        {"check again in a moment", "请稍后再检查"});
}

bool isBusy(const QJsonObject &status)
{
    return member(status, "deviceProcess", "busy").toBool();
}

Finding deviceProcess(const QJsonObject &status)
{
    const QJsonObject process = status.value(QStringLiteral("deviceProcess")).toObject();
    if (process.isEmpty() || process.value(QStringLiteral("inside")).toBool()) {
        return warning({"the device library runs inside the server", "设备库运行在服务进程内"},
                       {"remove process=inside from devices.ini: its crash would end the server",
                        "请从 devices.ini 中删除 process=inside：设备库崩溃会使服务退出"});
    }
    return process.value(QStringLiteral("pid")).toInt() > 0 || isBusy(status)
        ? good({"the device process runs", "设备进程正在运行"})
        : fault({"the device process does not run: %1", "设备进程没有运行：%1"},
                {"the log says why it could not be started", "日志中有启动失败的原因"},
                process.value(QStringLiteral("lastReason")).toString());
}

Finding restarts(const QJsonObject &status)
{
    if (isBusy(status)) {
        return notKnownYet();
    }
    const int count = member(status, "deviceProcess", "restarts").toInt();
    const QString reason = member(status, "deviceProcess", "lastReason").toString();
    if (count == 0) {
        return good({"the device process was never restarted", "设备进程从未重启"});
    }
    if (count == 1 && reason.contains(QLatin1String("access policy"))) {
        return good({"the device process was restarted for another access policy",
                     "设备进程因访问策略变更而重启"});
    }
    return bad(
        count < 5 ? Finding::Level::Warning : Finding::Level::Fault,
        {"the device process was restarted: %1", "设备进程重启次数：%1"},
        {"report this reason to the maker of the device library", "请将此原因告知设备库厂商"},
        QStringLiteral("%1, %2").arg(count).arg(reason));
}

Finding deviceCalls(const QJsonObject &status)
{
    if (isBusy(status)) {
        return notKnownYet();
    }
    const auto calls = member(status, "deviceProcess", "calls").toArray();
    for (const QJsonValue &call : calls) {
        const QJsonObject object = call.toObject();
        if (object.value(QStringLiteral("forMs")).toDouble() > 5000) {
            return warning(
                {"the device has not answered %1 for more than 5 s", "设备超过 5 秒未应答 %1"},
                {"look whether it waits for a card or a finger, or hangs",
                 "请检查设备是在等待放卡、按指纹，还是无响应"},
                object.value(QStringLiteral("function")).toString());
        }
    }
    return good({"no call of the device takes long", "没有耗时过长的设备调用"});
}

Finding libraryFunctions(const QJsonObject &status)
{
    constexpr int shown = 200; // characters
    const QString error = member(status, "deviceProcess", "libraryError").toString();
    if (!error.isEmpty()) {
        return fault({"the device library can't be loaded: %1", "无法加载设备库：%1"},
                     {"look at [library] of devices.ini, and at what ldd says of that file",
                      "请检查 devices.ini 的 [library]，并用 ldd 检查该文件"},
                     error.left(shown));
    }
    const QJsonObject process = status.value(QStringLiteral("deviceProcess")).toObject();
    if (process.value(QStringLiteral("inside")).toBool()) {
        return warning(
            {"not known of a library inside the server", "设备库在服务进程内，无从得知"},
            {"remove process=inside from devices.ini", "请从 devices.ini 中删除 process=inside"});
    }
    // null: the server was linked with another library, and has all that it needs.
    if (!process.isEmpty() && !process.contains(QStringLiteral("missing"))) {
        return notKnownYet();
    }
    const QString missing = process.value(QStringLiteral("missing")).toString();
    if (missing.isEmpty()) {
        return good({"the device library has all functions", "设备库函数齐全"});
    }
    return warning(
        {"the device library has no %1", "设备库缺少 %1"},
        {"commands that need them fail; ask its maker", "需要它们的命令会失败；请联系厂商"},
        missing.left(shown));
}

Finding simulation(const QJsonObject &status)
{
    return status.value(QStringLiteral("simulation")).toBool()
        ? warning({"missing devices are simulated", "缺少的设备由程序模拟"},
                  {"not on a terminal at work: remove --simulate and [simulation] of devices.ini",
                   "正式终端上不可使用：请去掉 --simulate 和 devices.ini 的 [simulation]"})
        : good({"no device is simulated", "没有模拟设备"});
}

} // namespace

std::vector<Check> deviceProcessChecks()
{
    return {
        {"device-process", {"device process", "设备进程"}, withStatus<deviceProcess>},
        {"device-restarts", {"device restarts", "设备进程重启"}, withStatus<restarts>},
        {"device-calls", {"device calls", "设备调用"}, withStatus<deviceCalls>},
        {"library", {"device library", "设备库"}, withStatus<libraryFunctions>},
        {"simulation", {"simulation", "模拟设备"}, withStatus<simulation>},
    };
}

} // namespace checks
