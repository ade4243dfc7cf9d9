// SPDX-License-Identifier: MIT
#include "devicectl/checks/check.h"
#include "devicectl/checks/groups.h"

#include <QRegularExpression>

namespace checks {

namespace {

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
