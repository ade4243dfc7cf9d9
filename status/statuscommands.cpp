// SPDX-License-Identifier: MIT
//
// Connected devices and versions.

#include "devicelib/cardreader.h"
#include "devicelib/doccamera.h"
#include "dispatch/devicetext.h"
#include "dispatch/messagerun.h"

#include <algorithm>
#include <array>

namespace {

/**
 * USB identifiers of the vendors' document cameras, as their library spells them. Compared
 * case-sensitively.
 */
const std::array<QLatin1String, 3> cameraIds{
    QLatin1String("usb#vid_2b19&pid_0200"),
    QLatin1String("usb#vid_2b16&pid_6689"),
    QLatin1String("usb#vid_2b16&pid_bcd2"),
};

bool cameraConnected()
{
    const QString devices = utf8Of(DeviceText(sGetDevicesId()));
    return std::any_of(cameraIds.begin(), cameraIds.end(),
                       [&devices](QLatin1String id) { return devices.contains(id); });
}

} // namespace

// Two statuses, separated by "|".
QString MessageRun::GetDeviceStatus_callback(QString, QString, MessageRun *)
{
    const QString camera =
        cameraConnected() ? QStringLiteral("高拍仪已连接") : QStringLiteral("高拍仪未连接");
    const QString module = GetDeviceStatus_dc() ? QStringLiteral("社保卡模块已连接")
                                                : QStringLiteral("社保卡模块未连接");
    return reply(QStringLiteral("GetDeviceStatus"), camera + QLatin1Char('|') + module);
}

QString MessageRun::sEnumUSBDevice_callback(QString name, QString, MessageRun *)
{
    return reply(name, utf8Of(DeviceText(sEnumUSBDevice())));
}

QString MessageRun::sGetSerialNum_callback(QString name, QString, MessageRun *)
{
    return reply(name, utf8Of(DeviceText(sGetSerialNum())));
}

QString MessageRun::sGetDevicesId_callback(QString name, QString, MessageRun *)
{
    return reply(name, utf8Of(DeviceText(sGetDevicesId())));
}

QString MessageRun::sServerVersion_callback(QString name, QString, MessageRun *)
{
    std::array<char, 1001> text{}; // one more than announced to the library: always terminated
    doccameraVeriosn(text.data(), int(text.size()) - 1);
    return reply(name, QString::fromUtf8(text.data()));
}

// Constants by which pages recognize this server, not the program's version or platform.
QString MessageRun::getVersion_callback(QString name, QString, MessageRun *)
{
    return reply(name, QStringLiteral("V1.0.2"));
}

QString MessageRun::version_callback(QString name, QString, MessageRun *)
{
    return reply(name, QStringLiteral("linux_kylin_arm64"));
}
