// SPDX-License-Identifier: MIT
#include "base/neighbor.h"
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

#include <QRegularExpression>

#include <algorithm>

namespace checks {

namespace {

QStringList servers(const Environment &environment)
{
    QStringList found;
    const auto processes = environment.processes();
    for (const auto &each : processes) {
        if (isServer(each)) {
            found << QStringLiteral("%1 (%2)").arg(each.id).arg(each.user);
        }
    }
    return found;
}

Finding process(const Environment &environment)
{
    const QStringList found = servers(environment);
    return found.isEmpty()
        ? fault({"the server does not run", "服务没有运行"},
                {"start it; if it ends at once, its standard error says why",
                 "请启动服务；若立即退出，标准错误输出会说明原因"})
        : good({"the server runs, process %1", "服务正在运行，进程 %1"}, join(found));
}

/// The socket that listens on port 1818.
struct Listener
{
    QString inode; ///< empty: there is none
    uid_t user = 0;
};

/// In /proc/net/tcp; see proc_net_tcp.txt of Linux: local address, state (0A listens), user and
/// inode.
Listener listener(const Environment &environment)
{
    static const QRegularExpression line(
        QStringLiteral(
            R"(^ *\d+: [0-9A-F]+:071A [0-9A-F]+:[0-9A-F]+ 0A (?:\S+ +){3}(\d+) +\d+ +(\d+))"),
        QRegularExpression::MultilineOption);
    for (const char *table : {"/proc/net/tcp6", "/proc/net/tcp"}) {
        const auto match =
            line.match(QString::fromLatin1(environment.end(QLatin1String(table), 8 * MiB)));
        if (match.hasMatch()) {
            return {match.captured(2), uid_t(match.captured(1).toUInt())};
        }
    }
    return {};
}

/// "cheese, process 7 of clerk".
QString named(qint64 id, const QVector<Environment::Process> &processes)
{
    const auto found = std::find_if(processes.begin(), processes.end(),
                                    [id](const auto &process) { return process.id == id; });
    const QString program = found == processes.end()
        ? QStringLiteral("?")
        : found->commandLine.section(QLatin1Char(' '), 0, 0).section(QLatin1Char('/'), -1);
    return said({"%1, process %2 of %3", "%1（进程 %2，用户 %3）"})
        .arg(program)
        .arg(id)
        .arg(found == processes.end() ? QStringLiteral("?") : found->user);
}

Finding port(const Environment &environment)
{
    const Listener socket = listener(environment);
    if (socket.inode.isEmpty()) {
        return fault({"nobody listens on port 1818", "没有程序监听 1818 端口"}, startIt);
    }
    const auto holders = environment.holders(QStringLiteral("socket:[%1]").arg(socket.inode));
    if (holders.isEmpty()) {
        return warning(
            {"a program of the user %1 listens on port 1818", "用户 %1 的程序正在监听 1818 端口"},
            {"to see which: run devicectl as that user, or as root",
             "请以该用户或 root 运行 devicectl，查看是哪个程序"},
            base::userText(socket.user));
    }
    const auto processes = environment.processes();
    for (const auto &each : processes) {
        if (holders.contains(each.id) && isServer(each)) {
            return good({"the server listens on port 1818", "服务正在监听 1818 端口"});
        }
    }
    return fault({"another program listens on port 1818: %1", "1818 端口被其他程序占用：%1"},
                 {"end that program, then start the server", "结束该程序后启动服务"},
                 named(holders.first(), processes));
}

/// What the server's check leaves out of its count of servers; see app/singleinstance.cpp.
bool isLeftOut(const Environment::Process &process)
{
    const QString line = process.user + QLatin1Char(' ') + process.commandLine; // as ps shows it
    for (const char *text : {"sh", "txt", "grep", "sudo"}) {
        if (line.contains(QLatin1String(text))) {
            return true;
        }
    }
    return line.contains(QLatin1String("qtcreator"), Qt::CaseInsensitive);
}

Finding instance(const Environment &environment)
{
    const auto processes = environment.processes();
    for (const auto &each : processes) {
        const QString id = QString::number(each.id);
        if (isServer(each) && isLeftOut(each)) {
            return warning({"another server would not notice the one that runs, process %1",
                            "另一个实例无法发现正在运行的服务（进程 %1）"},
                           {"its user's name, path and arguments must not contain sh, txt, grep, "
                            "sudo or qtcreator",
                            "其用户名、路径和参数不得包含 sh、txt、grep、sudo、qtcreator"},
                           id);
        }
        if (!isServer(each) && !isLeftOut(each)
            && each.commandLine.contains(QLatin1String("rvowebSocketServer"))) {
            return fault({"process %1 counts as a second server: its command line has the name",
                          "进程 %1 的命令行含有服务名，会被当作另一个实例"},
                         {"end it before the server is started", "启动服务前请结束该进程"}, id);
        }
    }
    return good({"no other command line is taken for the server", "没有命令行被误认为服务"});
}

Finding statusSocket(const Environment &environment)
{
    return environment.status()
        ? good({"the server answers at its status socket", "状态套接字有应答"})
        : fault({"no answer at the status socket (servers: %1)", "状态套接字没有应答（服务：%1）"},
                {"start the server, and run devicectl as its user, in its session",
                 "请启动服务，并以该用户在同一会话中运行 devicectl"},
                servers(environment).isEmpty() ? QStringLiteral("-") : join(servers(environment)));
}

Finding mainThread(const QJsonObject &status)
{
    constexpr double longCommand = 5000; // ms
    const double duration = member(status, "mainThread", "forMs").toDouble();
    const QString command = member(status, "mainThread", "command").toString();
    if (!command.isEmpty() && duration > longCommand) {
        return fault({"%1 keeps the server busy, pages wait", "%1 正占用服务，网页在等待"},
                     {"look whether the device hangs: unplug it and plug it in again",
                      "检查设备是否无响应：请重新插拔"},
                     QStringLiteral("%1 (%2 s)").arg(command).arg(qRound(duration / 1000)));
    }
    return good({"the server carries out commands at once", "服务能及时执行命令"});
}

} // namespace

std::vector<Check> programChecks()
{
    return {
        {"process", {"server", "服务进程"}, process},
        {"port", {"port 1818", "1818 端口"}, port},
        {"instance", {"single instance", "单实例检查"}, instance},
        {"status", {"status socket", "状态套接字"}, statusSocket},
        {"main-thread", {"responsiveness", "响应"}, withStatus<mainThread>},
    };
}

} // namespace checks
