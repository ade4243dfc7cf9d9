// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

#include <QJsonArray>
#include <QRegularExpression>

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

/**
 * Whether there is a display server.
 * \param name  value of DISPLAY (X(7): "[host]:number[.screen]")
 */
bool hasX(const Environment &environment, const QString &name)
{
    static const QRegularExpression form(QStringLiteral("^(.*):(\\d+)(\\.\\d+)?$"));
    const auto match = form.match(name);
    const QString host = match.captured(1);
    if (!match.hasMatch()) {
        return false;
    }
    if (!host.isEmpty() && host != QLatin1String("unix")) {
        constexpr int firstPort = 6000;
        return environment.accepts(
            QStringLiteral("%1:%2").arg(host).arg(firstPort + match.captured(2).toInt()));
    }
    const QString socket = QStringLiteral("/tmp/.X11-unix/X") + match.captured(2);
    return environment.accepts(socket) || environment.accepts(QLatin1Char('@') + socket);
}

/// The same for WAYLAND_DISPLAY, a path or a name in XDG_RUNTIME_DIR.
bool hasWayland(const Environment &environment, const QString &name)
{
    return environment.accepts(name.startsWith(QLatin1Char('/'))
                                   ? name
                                   : variable(environment, "XDG_RUNTIME_DIR") + QLatin1Char('/')
                                       + name);
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
    const QString x = variable(environment, "DISPLAY");
    if (wayland.isEmpty() && x.isEmpty()) {
        return warning({"the server has no display: neither signing nor counter pages",
                        "服务没有显示器：无法签名和显示柜台页面"},
                       {"start the server in the desktop's session", "请在桌面会话中启动服务"});
    }
    const QString name = wayland.isEmpty() ? x : wayland;
    return (!wayland.isEmpty() && hasWayland(environment, wayland))
            || (!x.isEmpty() && hasX(environment, x))
        ? good({"the display is %1", "显示器为 %1"}, name)
        : warning({"nobody answers at the server's display %1", "服务的显示器 %1 没有应答"},
                  {"start the server again in the session that runs now",
                   "请在当前桌面会话中重新启动服务"},
                  name);
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
