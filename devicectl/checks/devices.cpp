// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

#include <algorithm>

namespace checks {

namespace {

Finding pcscd(const Environment &environment)
{
    if (environment.accepts(QStringLiteral("/run/pcscd/pcscd.comm"))) {
        return good({"the service of card readers runs", "读卡器服务正在运行"});
    }
    return warning(
        {"the service of card readers (pcscd) does not run", "读卡器服务 (pcscd) 没有运行"},
        {"where there is a PC/SC reader, install pcscd and libccid; "
         "systemctl enable --now pcscd.socket",
         "使用 PC/SC 读卡器时请安装 pcscd 和 libccid；systemctl enable --now pcscd.socket"});
}

/// Whether a USB device has the class of smart card readers, 0b.
bool hasUsbReader(const Environment &environment)
{
    const QString devices = QStringLiteral("/sys/bus/usb/devices");
    const auto names = environment.entries(devices);
    return std::any_of(names.begin(), names.end(), [&](const QString &name) {
        return environment.end(QStringLiteral("%1/%2/bInterfaceClass").arg(devices, name), 16)
                   .trimmed()
            == "0b";
    });
}

Finding cardReader(const Environment &environment)
{
    const auto readers = environment.cardReaders();
    if (readers && !readers->isEmpty()) {
        return good({"card readers: %1", "读卡器：%1"}, join(*readers));
    }
    if (!readers) {
        return warning(
            {"unknown, as the service of card readers does not answer", "未知，读卡器服务没有应答"},
            {"start it again: systemctl restart pcscd; over ssh, it may answer root only",
             "请重新启动：systemctl restart pcscd；通过 ssh 时可能只应答 root"});
    }
    return hasUsbReader(environment)
        ? warning({"a card reader is plugged in, but its service does not know it",
                   "已连接读卡器，但读卡器服务未识别"},
                  {"install pcscd and libccid, then plug the reader in again",
                   "请安装 pcscd 和 libccid，然后重新插拔读卡器"})
        : warning({"there is no card reader of the standard class", "没有标准类读卡器"},
                  {"plug it in; a maker's own kind needs its device library",
                   "请连接；厂商专用读卡器需要其设备库"});
}

/// The printer that pages print on: the one that devices.ini names, or else the default one.
Environment::Printer chosenPrinter(const Environment &environment)
{
    return environment.printer(setting(environment, "devices.ini", "printer"));
}

constexpr Text noPrintService = {"no print service answers", "没有打印服务应答"};
constexpr Text startPrintService = {"systemctl enable --now cups, where pages print",
                                    "需要打印时：systemctl enable --now cups"};

Finding cups(const Environment &environment)
{
    return chosenPrinter(environment).isAnswered
        ? good({"the print service runs", "打印服务正在运行"})
        : warning(noPrintService, startPrintService);
}

Finding printer(const Environment &environment)
{
    const auto printer = chosenPrinter(environment);
    if (!printer.isAnswered) {
        return warning(noPrintService, startPrintService);
    }
    if (printer.name.isEmpty()) {
        const QString wanted = setting(environment, "devices.ini", "printer");
        return wanted.isEmpty()
            ? warning({"there is no default printer", "没有默认打印机"},
                      {"lpadmin -d NAME, where pages print", "需要打印时：lpadmin -d 名称"})
            : warning({"there is no printer %1, which devices.ini names",
                       "没有 devices.ini 指定的打印机 %1"},
                      {"correct [printing] printer=NAME", "请更正 [printing] printer=名称"},
                      wanted);
    }
    const QString state = printer.reasons.isEmpty() || printer.reasons == QLatin1String("none")
        ? printer.name
        : QStringLiteral("%1 (%2)").arg(printer.name, printer.reasons);
    if (printer.isStopped) {
        return warning(
            {"the printer is stopped: %1", "打印机已停止：%1"},
            {"correct what it names, then cupsenable NAME", "排除所示原因后执行 cupsenable 名称"},
            state);
    }
    return printer.isAccepting ? good({"pages print on %1", "打印机为 %1"}, state)
                               : warning({"the printer takes no jobs: %1", "打印机不接受任务：%1"},
                                         {"cupsaccept NAME", "cupsaccept 名称"}, state);
}

} // namespace

std::vector<Check> deviceChecks()
{
    return {
        {"pcscd", {"card service", "读卡器服务"}, pcscd},
        {"card-reader", {"card reader", "读卡器"}, cardReader},
        {"cups", {"print service", "打印服务"}, cups},
        {"printer", {"printer", "打印机"}, printer},
    };
}

} // namespace checks
