// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

namespace checks {

namespace {

QStringList cameraNodes(const Environment &environment)
{
    QStringList nodes;
    const auto names = environment.entries(QStringLiteral("/dev"));
    for (const QString &name : names) {
        const QString node = QLatin1String("/dev/") + name;
        if (name.startsWith(QLatin1String("video")) && environment.isCamera(node)) {
            nodes << node;
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
    const bool isSimulated = statusMember(environment, "simulation").toBool();
    return bad(isSimulated ? Finding::Level::Warning : Finding::Level::Fault, noCamera,
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
    return environment.isRoot()
        ? good({"no other program has a camera open", "没有其他程序占用摄像头"})
        : good({"no other program of this user has a camera open; root sees all",
                "当前用户没有其他程序占用摄像头；以 root 运行可查看所有用户"});
}

/// A sound camera delivers its first frame within this time.
constexpr double startMs = 3000;

Finding judged(double rate)
{
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

Finding cameraDelivers(const Environment &environment)
{
    const auto measured = environment.measuredPreview();
    if (measured) {
        return measured->problem.isEmpty()
            ? judged(measured->framesPerSecond)
            : fault({"the preview can't be started: %1", "无法启动预览：%1"},
                    {"the log says why; with an access policy, --origin and --token say who asks",
                     "原因见日志；有访问策略时可用 --origin 和 --token 说明身份"},
                    measured->problem);
    }
    const auto status = environment.status();
    if (!status) {
        return unknown();
    }
    if (member(*status, "camera", "source").toInt() == 0) {
        return status->value(QStringLiteral("pageCount")).toInt() == 0
            ? good({"no preview runs; doctor --measure starts one",
                    "没有正在运行的预览；doctor --measure 可启动并测量"})
            : good({"no preview runs, and none is started while pages are connected",
                    "没有正在运行的预览；有网页连接时不会启动"});
    }
    if (member(*status, "camera", "paused").toBool()) {
        return good({"the preview is paused", "预览已暂停"});
    }
    const double rate = member(*status, "camera", "framesPerSecond").toDouble();
    return rate <= 0 && member(*status, "camera", "waitingMs").toDouble(startMs) < startMs
        ? good({"the preview is starting", "预览正在启动"})
        : judged(rate);
}

} // namespace

std::vector<Check> cameraChecks()
{
    return {
        {"camera", {"camera", "摄像头"}, cameraPresent},
        {"camera-permission", {"camera permission", "摄像头权限"}, cameraPermitted},
        {"camera-busy", {"camera use", "摄像头占用"}, cameraBusy},
        {"camera-frames", {"camera frames", "摄像头画面"}, cameraDelivers},
    };
}

} // namespace checks
