// SPDX-License-Identifier: MIT
#include "devicectl/doctor.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSettings>

#include <algorithm>

namespace {

using Level = Finding::Level;

constexpr qint64 MiB = qint64(1) << 20;
constexpr qint64 GiB = qint64(1) << 30;

Finding good(const Text &meaning, const QString &value = {})
{
    const QString text = said(meaning);
    return {Level::Good, text.contains(QLatin1String("%1")) ? text.arg(value) : text, {}};
}

Finding bad(Level level, const Text &meaning, const Text &advice, const QString &value = {})
{
    const QString text = said(meaning);
    return {level, text.contains(QLatin1String("%1")) ? text.arg(value) : text, said(advice)};
}

Finding warning(const Text &meaning, const Text &advice, const QString &value = {})
{
    return bad(Level::Warning, meaning, advice, value);
}

Finding fault(const Text &meaning, const Text &advice, const QString &value = {})
{
    return bad(Level::Fault, meaning, advice, value);
}

constexpr Text noStatus = {"unknown, as the server does not answer", "未知，服务没有应答"};
constexpr Text startIt = {"start the server, then check again", "启动服务后再检查"};

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

// ---- the program

/// As the name of the program file; a path may hold the name, too.
bool isServer(const Environment::Process &process)
{
    const QString program = process.commandLine.section(QLatin1Char(' '), 0, 0);
    return program.section(QLatin1Char('/'), -1) == QLatin1String("rvowebSocketServer");
}

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

/// The inode of the socket that listens on port 1818 (/proc/net/tcp: local address, state 0A).
QString inodeOfListener(const Environment &environment)
{
    static const QRegularExpression line(
        QStringLiteral(R"(^ *\d+: [0-9A-F]+:071A [0-9A-F]+:[0-9A-F]+ 0A (?:\S+ +){5}(\d+))"),
        QRegularExpression::MultilineOption);
    for (const char *table : {"/proc/net/tcp6", "/proc/net/tcp"}) {
        const auto match =
            line.match(QString::fromLatin1(environment.end(QLatin1String(table), 8 * MiB)));
        if (match.hasMatch()) {
            return match.captured(1);
        }
    }
    return {};
}

Finding port(const Environment &environment)
{
    const QString inode = inodeOfListener(environment);
    if (inode.isEmpty()) {
        return fault({"nobody listens on port 1818", "没有程序监听 1818 端口"}, startIt);
    }
    const auto holders = environment.holders(QStringLiteral("socket:[%1]").arg(inode));
    if (holders.isEmpty()) {
        return warning(
            {"a program of another user listens on port 1818", "1818 端口被其他用户的程序监听"},
            {"run devicectl as the user of the server, or as root",
             "请以服务用户或 root 运行 devicectl"});
    }
    const auto processes = environment.processes();
    for (const auto &each : processes) {
        if (holders.contains(each.id) && isServer(each)) {
            return good({"the server listens on port 1818", "服务正在监听 1818 端口"});
        }
    }
    return fault(
        {"another program listens on port 1818: process %1", "1818 端口被其他程序占用：进程 %1"},
        {"end that program, then start the server", "结束该程序后启动服务"},
        QString::number(holders.first()));
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

Finding mainThread(const Environment &environment)
{
    const auto status = environment.status();
    if (!status) {
        return unknown();
    }
    constexpr double longCommand = 5000; // ms
    const double duration = member(*status, "mainThread", "forMs").toDouble();
    const QString command = member(*status, "mainThread", "command").toString();
    if (!command.isEmpty() && duration > longCommand) {
        return fault({"%1 keeps the server busy, pages wait", "%1 正占用服务，网页在等待"},
                     {"look whether the device hangs: unplug it and plug it in again",
                      "检查设备是否无响应：请重新插拔"},
                     QStringLiteral("%1 (%2 s)").arg(command).arg(qRound(duration / 1000)));
    }
    return good({"the server carries out commands at once", "服务能及时执行命令"});
}

// ---- folders and disks

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

Finding logErrors(const Environment &environment)
{
    static const char *const marks[] = {"capture error", "device process: ended",
                                        "can't listen on port", "log: stopped"};
    int count = 0;
    QString last;
    for (int daysAgo : {1, 0}) {
        const QString day =
            environment.now().addDays(-daysAgo).toString(QStringLiteral("yyyy-MM-dd"));
        const QList<QByteArray> lines =
            environment
                .end(QStringLiteral("%1/vx_log_%2.txt").arg(environment.places().log, day), 4 * MiB)
                .split('\n');
        for (const QByteArray &line : lines) {
            if (std::any_of(std::begin(marks), std::end(marks),
                            [&line](const char *mark) { return line.contains(mark); })) {
                ++count;
                last = QString::fromUtf8(line.left(160));
            }
        }
    }
    return count == 0
        ? good({"no serious line in the log since yesterday", "昨天以来日志中没有严重错误"})
        : warning({"serious lines in the log since yesterday: %1", "昨天以来日志中的严重错误：%1"},
                  {"read the log around the last one", "请查看最后一条附近的日志"},
                  QStringLiteral("%1, \"%2\"").arg(count).arg(last));
}

Finding memory(const Environment &environment)
{
    static const QRegularExpression available(QStringLiteral("MemAvailable: +(\\d+) kB"));
    const auto match = available.match(
        QString::fromLatin1(environment.end(QStringLiteral("/proc/meminfo"), 1 << 16)));
    const qint64 free = match.captured(1).toLongLong() / 1024;
    return free < 200
        ? warning({"the machine has %1 MiB of memory left", "内存仅剩 %1 MiB"},
                  {"end programs that are not needed", "请关闭不需要的程序"}, QString::number(free))
        : good({"the machine has %1 MiB of memory left", "内存剩余 %1 MiB"}, QString::number(free));
}

/// Whether a program of this name runs.
bool runs(const Environment &environment, const char *name)
{
    const auto processes = environment.processes();
    return std::any_of(processes.begin(), processes.end(), [name](const auto &process) {
        return process.commandLine.section(QLatin1Char(' '), 0, 0).section(QLatin1Char('/'), -1)
            == QLatin1String(name);
    });
}

Finding clock(const Environment &environment)
{
    if (environment.now().date().year() < 2024) {
        return fault({"the clock says %1", "时钟为 %1"},
                     {"set it: uploads to https servers fail with a wrong date",
                      "请校准：日期错误会使 https 上传失败"},
                     environment.now().toString(Qt::ISODate));
    }
    return environment.facts(QStringLiteral("/run/systemd/timesync/synchronized")).exists
            || runs(environment, "chronyd") || runs(environment, "ntpd")
        ? good({"the clock is synchronized", "时钟有同步"})
        : warning({"the clock is not synchronized", "时钟没有同步"},
                  {"enable systemd-timesyncd or chrony", "请启用 systemd-timesyncd 或 chrony"});
}

// ---- camera

QStringList cameraNodes(const Environment &environment)
{
    QStringList nodes;
    const auto names = environment.entries(QStringLiteral("/dev"));
    for (const QString &name : names) {
        if (name.startsWith(QLatin1String("video"))) {
            nodes << QLatin1String("/dev/") + name;
        }
    }
    return nodes;
}

constexpr Text noCamera = {"there is no camera", "没有摄像头"};

Finding cameraPresent(const Environment &environment)
{
    const QStringList nodes = cameraNodes(environment);
    if (!nodes.isEmpty()) {
        return good({"cameras: %1", "摄像头：%1"}, join(nodes));
    }
    const bool isSimulated =
        environment.status().value_or(QJsonObject()).value(QStringLiteral("simulation")).toBool();
    return bad(isSimulated ? Level::Warning : Level::Fault, noCamera,
               {"plug it in; lsusb and dmesg show whether the system sees it",
                "请连接；可用 lsusb 和 dmesg 查看系统是否识别"});
}

Finding cameraPermitted(const Environment &environment)
{
    const QStringList nodes = cameraNodes(environment);
    for (const QString &node : nodes) {
        const auto facts = environment.facts(node);
        if (!facts.isReadable || !facts.isWritable) {
            return fault({"this user may not open %1", "当前用户无权打开 %1"},
                         {"log in at the terminal's own screen, or add the user to group video",
                          "请在终端本机登录，或将用户加入 video 组"},
                         node);
        }
    }
    return nodes.isEmpty() ? warning(noCamera, {"plug it in", "请连接"})
                           : good({"this user may open the cameras", "当前用户可打开摄像头"});
}

Finding cameraBusy(const Environment &environment)
{
    const auto processes = environment.processes();
    const auto nodes = cameraNodes(environment);
    for (const QString &node : nodes) {
        const auto holders = environment.holders(node);
        for (const auto &each : processes) {
            if (holders.contains(each.id) && !isServer(each)
                && !each.commandLine.startsWith(QLatin1String("devicehost"))) {
                return fault({"another program has a camera open: %1", "摄像头被其他程序占用：%1"},
                             {"close that program", "请关闭该程序"},
                             QStringLiteral("%1, process %2").arg(node).arg(each.id));
            }
        }
    }
    return good({"no other program has a camera open", "没有其他程序占用摄像头"});
}

Finding cameraDelivers(const Environment &environment)
{
    const auto status = environment.status();
    if (!status) {
        return unknown();
    }
    const double rate = member(*status, "camera", "framesPerSecond").toDouble();
    if (member(*status, "camera", "source").toInt() == 0) {
        return good({"no preview runs", "没有正在运行的预览"});
    }
    if (member(*status, "camera", "paused").toBool()) {
        return good({"the preview is paused", "预览已暂停"});
    }
    const QString frames = QString::number(rate, 'f', 1);
    if (rate <= 0) {
        return fault({"the camera is open but delivers no frames", "摄像头已打开但没有画面"},
                     {"unplug it and plug it in again; the log has \"capture error\"",
                      "请重新插拔；日志中有 \"capture error\""});
    }
    return rate < 5 ? warning({"the camera delivers %1 frames a second", "摄像头每秒 %1 帧"},
                              {"more light, a smaller resolution, or another USB port help",
                               "可增加光线、降低分辨率或更换 USB 接口"},
                              frames)
                    : good({"the camera delivers %1 frames a second", "摄像头每秒 %1 帧"}, frames);
}

// ---- other devices

Finding pcscd(const Environment &environment)
{
    if (environment.facts(QStringLiteral("/run/pcscd/pcscd.comm")).exists) {
        return good({"the service of card readers runs", "读卡器服务正在运行"});
    }
    return warning(
        {"the service of card readers (pcscd) does not run", "读卡器服务 (pcscd) 没有运行"},
        {"where there is a PC/SC reader, install pcscd and libccid; "
         "systemctl enable --now pcscd.socket",
         "使用 PC/SC 读卡器时请安装 pcscd 和 libccid；systemctl enable --now pcscd.socket"});
}

/// USB class 0b: smart card readers.
Finding cardReader(const Environment &environment)
{
    const QString devices = QStringLiteral("/sys/bus/usb/devices");
    const auto names = environment.entries(devices);
    for (const QString &name : names) {
        const QByteArray usbClass =
            environment.end(QStringLiteral("%1/%2/bInterfaceClass").arg(devices, name), 16);
        if (usbClass.trimmed() == "0b") {
            return good({"there is a card reader", "有读卡器"});
        }
    }
    return warning({"there is no card reader of the standard class", "没有标准类读卡器"},
                   {"plug it in; a maker's own kind needs its device library",
                    "请连接；厂商专用读卡器需要其设备库"});
}

Finding cups(const Environment &environment)
{
    return environment.facts(QStringLiteral("/run/cups/cups.sock")).exists
        ? good({"the print service runs", "打印服务正在运行"})
        : warning({"the print service does not run", "打印服务没有运行"},
                  {"systemctl enable --now cups, where pages print",
                   "需要打印时：systemctl enable --now cups"});
}

Finding printer(const Environment &environment)
{
    const auto outcome = environment.run(QStringLiteral("lpstat"), {QStringLiteral("-d")});
    static const QRegularExpression name(QStringLiteral("[:：] *(\\S+)\\s*$"));
    const auto match = name.match(outcome.output.trimmed());
    return outcome.isStarted && outcome.status == 0 && match.hasMatch()
        ? good({"the default printer is %1", "默认打印机为 %1"}, match.captured(1))
        : warning({"there is no default printer", "没有默认打印机"},
                  {"lpadmin -d NAME, where pages print", "需要打印时：lpadmin -d 名称"});
}

/// A variable of the server, or of this program if it doesn't run: who looks may have come by ssh.
QString variable(const Environment &environment, const char *name)
{
    const QString id = QString::number(qint64(
        environment.status().value_or(QJsonObject()).value(QStringLiteral("pid")).toDouble()));
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
    const auto problems =
        environment.status().value_or(QJsonObject()).value(QStringLiteral("problems")).toArray();
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

// ---- browser

/// The browser that server.ini names; empty if it names none.
QString chosenBrowser(const Environment &environment)
{
    static const QRegularExpression line(QStringLiteral(R"(^ *browser *= *"?([^"\r\n]+))"),
                                         QRegularExpression::MultilineOption);
    const QString file = environment.places().files.find(QStringLiteral("server.ini"));
    return line.match(QString::fromUtf8(environment.end(file))).captured(1).trimmed();
}

Finding browser(const Environment &environment)
{
    // Those that the helper for counter pages looks for (companions/browser/browsersettings.h).
    QStringList names{QStringLiteral("chromium"),      QStringLiteral("chromium-browser"),
                      QStringLiteral("uos-browser"),   QStringLiteral("google-chrome-stable"),
                      QStringLiteral("google-chrome"), QStringLiteral("microsoft-edge-stable")};
    const QString chosen = chosenBrowser(environment);
    if (!chosen.isEmpty()) {
        names = QStringList{chosen};
    }
    for (const QString &name : qAsConst(names)) {
        if (environment.hasProgram(name)) {
            return good({"the browser is %1", "浏览器为 %1"}, name);
        }
    }
    return warning(
        {"there is no browser for the counter pages (%1)", "没有用于柜台页面的浏览器（%1）"},
        {"install chromium, where counter pages are shown", "需要显示柜台页面时请安装 chromium"},
        join(names));
}

/// The origins that the browser policies admit to this machine.
QStringList originsOfBrowserPolicies(const Environment &environment)
{
    QStringList origins;
    for (const char *family :
         {"chromium", "opt/chrome", "opt/edge", "chromium-browser", "opt/uos-browser"}) {
        const QString folder =
            QStringLiteral("/etc/%1/policies/managed").arg(QLatin1String(family));
        const auto names = environment.entries(folder);
        for (const QString &name : names) {
            const QJsonObject policy =
                QJsonDocument::fromJson(environment.end(folder + QLatin1Char('/') + name)).object();
            const auto urls =
                policy.value(QStringLiteral("LoopbackNetworkAllowedForUrls")).toArray();
            for (const QJsonValue &url : urls) {
                origins << url.toString();
            }
        }
    }
    return origins;
}

Finding browserPolicy(const Environment &environment)
{
    const QStringList origins = originsOfBrowserPolicies(environment);
    return origins.isEmpty()
        ? warning({"no browser policy: recent browsers ask the clerk before a page may connect",
                   "没有浏览器策略：新版浏览器会在网页连接前询问柜员"},
                  {"name the pages in LoopbackNetworkAllowedForUrls",
                   "请在 LoopbackNetworkAllowedForUrls 中列出网页"})
        : good({"these pages may connect from the browser: %1", "浏览器允许这些网页连接：%1"},
               join(origins));
}

// ---- what else is installed

Finding models(const Environment &environment)
{
    const QString folder = environment.places().files.find(QStringLiteral("models"));
    for (const char *name : {"tiny_face_detector_model.bin", "face_landmark_68_model.bin",
                             "face_recognition_model.bin"}) {
        if (environment.facts(folder + QLatin1Char('/') + QLatin1String(name)).size == 0) {
            return warning({"the weight %1 of the face networks is missing", "缺少人脸网络权重 %1"},
                           {"run scripts/fetch-face-models.sh, where faces are compared",
                            "需要人脸比对时请运行 scripts/fetch-face-models.sh"},
                           QLatin1String(name));
        }
    }
    return good({"the weights of the face networks are there", "人脸网络权重齐全"});
}

Finding fonts(const Environment &environment)
{
    const auto outcome =
        environment.run(QStringLiteral("fc-list"), {QStringLiteral(":lang=zh-cn")});
    return outcome.output.trimmed().isEmpty()
        ? warning({"there is no Chinese font", "没有中文字体"},
                  {"install fonts-wqy-microhei", "请安装 fonts-wqy-microhei"})
        : good({"there are Chinese fonts", "有中文字体"});
}

Finding companion(const Environment &environment, const char *name)
{
    const QString folder = environment.places().files.program + QLatin1Char('/');
    for (const QString &file :
         {QString::fromLatin1(name), QStringLiteral("run-%1.sh").arg(QLatin1String(name))}) {
        if (!environment.facts(folder + file).isExecutable) {
            return fault({"%1 is missing or can't be run", "缺少 %1 或无法执行"},
                         {"install the server again", "请重新安装服务"}, folder + file);
        }
    }
    return good({"%1 is there", "%1 已安装"}, QLatin1String(name));
}

Finding signature(const Environment &environment)
{
    return companion(environment, "elecsign");
}

Finding browserHelper(const Environment &environment)
{
    return companion(environment, "webbrowser");
}

Finding deviceHost(const Environment &environment)
{
    const auto status = environment.status();
    if (status && status->value(QStringLiteral("deviceProcess")).isNull()) {
        return good({"the server is linked with its device library", "服务已直接链接设备库"});
    }
    return environment.facts(environment.places().files.program + QStringLiteral("/devicehost"))
               .isExecutable
        ? good({"the program of the device process is there", "设备进程程序已安装"})
        : fault({"the program devicehost is missing", "缺少程序 devicehost"},
                {"install the server again", "请重新安装服务"});
}

template <int index> Finding neededProgram(const Environment &environment)
{
    static constexpr struct
    {
        const char *program;
        Text without;
        Text advice;
    } needed[] = {
        {"ps",
         {"ps is missing: a second server is not noticed", "缺少 ps：无法发现第二个实例"},
         {"install procps", "请安装 procps"}},
        {"pdftoppm",
         {"pdftoppm is missing: no PDF can be signed", "缺少 pdftoppm：无法签署 PDF"},
         {"install poppler-utils", "请安装 poppler-utils"}},
        {"xdg-open",
         {"xdg-open is missing: OpenFile fails", "缺少 xdg-open：OpenFile 会失败"},
         {"install xdg-utils", "请安装 xdg-utils"}},
    };
    const auto &each = needed[index];
    return environment.hasProgram(QLatin1String(each.program))
        ? good({"%1 is there", "%1 已安装"}, QLatin1String(each.program))
        : warning(each.without, each.advice);
}

Finding certificates(const Environment &environment)
{
    return environment.facts(QStringLiteral("/etc/ssl/certs/ca-certificates.crt")).size > 0
        ? good({"there are certificate authorities for uploads", "有用于上传的根证书"})
        : warning({"there are no certificate authorities: uploads to https fail",
                   "没有根证书：https 上传会失败"},
                  {"install ca-certificates", "请安装 ca-certificates"});
}

// ---- device process

Finding deviceProcess(const Environment &environment)
{
    const auto status = environment.status();
    if (!status) {
        return unknown();
    }
    const QJsonObject process = status->value(QStringLiteral("deviceProcess")).toObject();
    if (process.isEmpty() || process.value(QStringLiteral("inside")).toBool()) {
        return warning({"the device library runs inside the server", "设备库运行在服务进程内"},
                       {"remove process=inside from devices.ini: its crash would end the server",
                        "请从 devices.ini 中删除 process=inside：设备库崩溃会使服务退出"});
    }
    return process.value(QStringLiteral("pid")).toInt() > 0
            || process.value(QStringLiteral("busy")).toBool()
        ? good({"the device process runs", "设备进程正在运行"})
        : fault({"the device process does not run: %1", "设备进程没有运行：%1"},
                {"the log says why it could not be started", "日志中有启动失败的原因"},
                process.value(QStringLiteral("lastReason")).toString());
}

Finding restarts(const Environment &environment)
{
    const auto status = environment.status();
    if (!status) {
        return unknown();
    }
    const int count = member(*status, "deviceProcess", "restarts").toInt();
    const QString reason = member(*status, "deviceProcess", "lastReason").toString();
    if (count == 0) {
        return good({"the device process was never restarted", "设备进程从未重启"});
    }
    if (count == 1 && reason.contains(QLatin1String("access policy"))) {
        return good({"the device process was restarted for another access policy",
                     "设备进程因访问策略变更而重启"});
    }
    return bad(
        count < 5 ? Level::Warning : Level::Fault,
        {"the device process was restarted: %1", "设备进程重启次数：%1"},
        {"report this reason to the maker of the device library", "请将此原因告知设备库厂商"},
        QStringLiteral("%1, %2").arg(count).arg(reason));
}

Finding deviceCalls(const Environment &environment)
{
    const auto status = environment.status();
    if (!status) {
        return unknown();
    }
    const auto calls = member(*status, "deviceProcess", "calls").toArray();
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

Finding libraryFunctions(const Environment &environment)
{
    const QString day = environment.now().toString(QStringLiteral("yyyy-MM-dd"));
    const QByteArray log = environment.end(
        QStringLiteral("%1/vx_log_%2.txt").arg(environment.places().log, day), 4 * MiB);
    const QByteArray mark = "the library doesn't have ";
    const int at = log.lastIndexOf(mark);
    if (at < 0) {
        return good({"the device library has all functions", "设备库函数齐全"});
    }
    const int start = at + mark.size();
    return warning(
        {"the device library has no %1", "设备库缺少 %1"},
        {"commands that need them fail; ask its maker", "需要它们的命令会失败；请联系厂商"},
        QString::fromUtf8(log.mid(start, log.indexOf('\n', start) - start).left(200)));
}

Finding simulation(const Environment &environment)
{
    const auto status = environment.status();
    if (!status) {
        return unknown();
    }
    return status->value(QStringLiteral("simulation")).toBool()
        ? warning({"missing devices are simulated", "缺少的设备由程序模拟"},
                  {"not on a terminal at work: remove --simulate and [simulation] of devices.ini",
                   "正式终端上不可使用：请去掉 --simulate 和 devices.ini 的 [simulation]"})
        : good({"no device is simulated", "没有模拟设备"});
}

// ---- pages and the access policy

Finding slowPages(const Environment &environment)
{
    const auto status = environment.status();
    if (!status) {
        return unknown();
    }
    const auto pages = status->value(QStringLiteral("pages")).toArray();
    for (const QJsonValue &value : pages) {
        const QJsonObject page = value.toObject();
        if (page.value(QStringLiteral("bytesWaiting")).toDouble() > 16.0 * double(MiB)) {
            return fault(
                {"a page does not read what it is sent: %1", "网页没有读取收到的数据：%1"},
                {"reload that page", "请刷新该网页"},
                QStringLiteral("%1 %2").arg(page.value(QStringLiteral("origin")).toString(),
                                            page.value(QStringLiteral("address")).toString()));
        }
    }
    return good({"pages that read what they are sent: %1", "正常读取数据的网页数：%1"},
                QString::number(pages.size()));
}

Finding policyFile(const Environment &environment)
{
    const auto found = environment.policy();
    if (found.error) {
        return fault({"the access policy is faulty: %1", "访问策略有误：%1"},
                     {"correct that line; the server does not start with it",
                      "请更正该行；否则服务无法启动"},
                     found.error->text());
    }
    return found.policy
        ? good({"the access policy is %1", "访问策略为 %1"}, found.policy->file)
        : warning({"there is no access policy: any web page may use the devices",
                   "没有访问策略：任何网页都可使用设备"},
                  {"put one in place: docs/access.md", "请部署访问策略：docs/access.md"});
}

Finding policyMode(const Environment &environment)
{
    const auto found = environment.policy();
    if (!found.policy) {
        return good({"there is no access policy to be in force", "没有需要生效的访问策略"});
    }
    using Mode = accesspolicy::Policy::Mode;
    return found.policy->mode == Mode::Enforce
        ? good({"the access policy is enforced", "访问策略已强制执行"})
        : warning({"the access policy refuses nothing yet", "访问策略尚未拒绝任何请求"},
                  {"devicectl policy shows what it would refuse; then set mode=enforce",
                   "devicectl policy 显示将被拒绝的请求；之后设置 mode=enforce"});
}

Finding policyInForce(const Environment &environment)
{
    const auto status = environment.status();
    if (!status) {
        return unknown();
    }
    const auto found = environment.policy();
    const QString file = found.policy ? found.policy->file : QString();
    return member(*status, "access", "file").toString() == file || found.error
        ? good({"the server has read the policy that is there now", "服务已读取当前的策略"})
        : warning({"the server has read another policy than %1", "服务读取的不是 %1"},
                  {"start the server again", "请重新启动服务"},
                  file.isEmpty() ? QStringLiteral("-") : file);
}

} // namespace

Environment::~Environment() = default;

const std::vector<Check> &allChecks()
{
    static const std::vector<Check> checks = {
        {"process", {"server", "服务进程"}, process},
        {"port", {"port 1818", "1818 端口"}, port},
        {"instance", {"single instance", "单实例检查"}, instance},
        {"status", {"status socket", "状态套接字"}, statusSocket},
        {"main-thread", {"responsiveness", "响应"}, mainThread},
        {"program-folder", {"program folder", "程序目录"}, programFolder},
        {"data-folder", {"data folder", "数据目录"}, dataFolder},
        {"log-folder", {"log folder", "日志目录"}, logFolder},
        {"disk", {"disk space", "磁盘空间"}, diskSpace},
        {"log-size", {"log size", "日志大小"}, logSize},
        {"log-errors", {"log", "日志错误"}, logErrors},
        {"memory", {"memory", "内存"}, memory},
        {"clock", {"clock", "时钟"}, clock},
        {"camera", {"camera", "摄像头"}, cameraPresent},
        {"camera-permission", {"camera permission", "摄像头权限"}, cameraPermitted},
        {"camera-busy", {"camera use", "摄像头占用"}, cameraBusy},
        {"camera-frames", {"camera frames", "摄像头画面"}, cameraDelivers},
        {"pcscd", {"card service", "读卡器服务"}, pcscd},
        {"card-reader", {"card reader", "读卡器"}, cardReader},
        {"cups", {"print service", "打印服务"}, cups},
        {"printer", {"printer", "打印机"}, printer},
        {"display", {"display", "显示器"}, display},
        {"display-authority", {"display authority", "显示授权"}, authority},
        {"customer-screen", {"customer's screen", "客户屏"}, customerScreen},
        {"browser", {"browser", "浏览器"}, browser},
        {"browser-policy", {"browser policy", "浏览器策略"}, browserPolicy},
        {"models", {"face networks", "人脸网络"}, models},
        {"fonts", {"fonts", "字体"}, fonts},
        {"signature", {"signature service", "签名服务"}, signature},
        {"browser-helper", {"browser helper", "浏览器助手"}, browserHelper},
        {"devicehost", {"devicehost", "设备进程程序"}, deviceHost},
        {"ps", {"ps", "ps"}, neededProgram<0>},
        {"pdftoppm", {"pdftoppm", "pdftoppm"}, neededProgram<1>},
        {"xdg-open", {"xdg-open", "xdg-open"}, neededProgram<2>},
        {"certificates", {"certificates", "根证书"}, certificates},
        {"device-process", {"device process", "设备进程"}, deviceProcess},
        {"device-restarts", {"device restarts", "设备进程重启"}, restarts},
        {"device-calls", {"device calls", "设备调用"}, deviceCalls},
        {"library", {"device library", "设备库"}, libraryFunctions},
        {"simulation", {"simulation", "模拟设备"}, simulation},
        {"pages", {"pages", "网页"}, slowPages},
        {"policy", {"access policy", "访问策略"}, policyFile},
        {"policy-mode", {"policy mode", "策略模式"}, policyMode},
        {"policy-in-force", {"policy in force", "生效的策略"}, policyInForce},
    };
    return checks;
}

QString levelName(Finding::Level level)
{
    switch (level) {
    case Finding::Level::Good:
        return QStringLiteral("ok");
    case Finding::Level::Warning:
        return QStringLiteral("warning");
    case Finding::Level::Fault:
        break;
    }
    return QStringLiteral("fault");
}

QJsonArray examine(const Environment &environment)
{
    QJsonArray findings;
    for (const Check &check : allChecks()) {
        const Finding finding = check.look(environment);
        findings.append(QJsonObject{{QStringLiteral("id"), QLatin1String(check.id)},
                                    {QStringLiteral("title"), said(check.title)},
                                    {QStringLiteral("level"), levelName(finding.level)},
                                    {QStringLiteral("meaning"), finding.meaning},
                                    {QStringLiteral("advice"), finding.advice}});
    }
    return findings;
}
