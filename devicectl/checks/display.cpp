// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

#include <QJsonArray>

#include <algorithm>

namespace checks {

namespace {

/// A variable of the server, or of this program if it doesn't run: who looks may have come by ssh.
QString variable(const Environment &environment, const char *name)
{
    const QString id = QString::number(qint64(statusMember(environment, "pid").toDouble()));
    const QByteArray all = environment.end(QStringLiteral("/proc/%1/environ").arg(id));
    if (all.isEmpty()) {
        return environment.variable(name);
    }
    const QByteArray start = QByteArray(name) + '=';
    const auto variables = all.split('\0');
    for (const QByteArray &each : variables) {
        if (each.startsWith(start)) {
            return QString::fromLocal8Bit(each.mid(start.size()));
        }
    }
    return {};
}

/// Whether the server's latest warnings and errors have this text.
bool hasProblem(const Environment &environment, const char *text)
{
    const auto problems = statusMember(environment, "problems").toArray();
    return std::any_of(problems.begin(), problems.end(), [text](const QJsonValue &problem) {
        return problem.toObject()
            .value(QStringLiteral("text"))
            .toString()
            .contains(QLatin1String(text));
    });
}

Finding display(const Environment &environment)
{
    if (hasProblem(environment, "the display can't be used")) {
        return warning({"the server can't use its display: neither signing nor counter pages",
                        "服务无法使用显示器：无法签名和显示柜台页面"},
                       {"start it in the desktop's session, as the user who is logged in",
                        "请以登录用户在桌面会话中启动服务"});
    }
    const QString wayland = variable(environment, "WAYLAND_DISPLAY");
    const QString name = wayland.isEmpty() ? variable(environment, "DISPLAY") : wayland;
    return name.isEmpty()
        ? warning({"the server has no display: neither signing nor counter pages",
                   "服务没有显示器：无法签名和显示柜台页面"},
                  {"start the server in the desktop's session", "请在桌面会话中启动服务"})
        : good({"the display is %1", "显示器为 %1"}, name);
}

Finding authority(const Environment &environment)
{
    const QString file = variable(environment, "XAUTHORITY");
    return file.isEmpty() || environment.facts(file).isReadable
        ? good(
            {"the display's authority file is readable or not needed", "显示授权文件可读或不需要"})
        : fault({"the display's authority file %1 can't be read", "无法读取显示授权文件 %1"},
                {"start the server as the user who is logged in", "请以登录用户启动服务"}, file);
}

Finding customerScreen(const Environment &environment)
{
    const QString folder = QStringLiteral("/sys/class/drm");
    int connected = 0;
    const auto names = environment.entries(folder);
    for (const QString &name : names) {
        const QByteArray state =
            environment.end(QStringLiteral("%1/%2/status").arg(folder, name), 32);
        connected += state.trimmed() == "connected" ? 1 : 0;
    }
    return connected >= 2
        ? good({"screens: %1", "屏幕数：%1"}, QString::number(connected))
        : warning(
            {"the customer's screen is not connected (screens: %1)", "客户屏未连接（屏幕数：%1）"},
            {"check its cable and power; counter pages appear on the clerk's screen",
             "请检查连线和电源；柜台页面会显示在柜员屏上"},
            QString::number(connected));
}

} // namespace

std::vector<Check> displayChecks()
{
    return {
        {"display", {"display", "显示器"}, display},
        {"display-authority", {"display authority", "显示授权"}, authority},
        {"customer-screen", {"customer's screen", "客户屏"}, customerScreen},
    };
}

} // namespace checks
