// SPDX-License-Identifier: MIT
#include "devicelib/doccamera.h"
#include "portable/base/failure.h"
#include "portable/base/texts.h"
#include "portable/camera/cameraset.h"
#include "portable/camera/camerasources.h"
#include "portable/camera/usbdevices.h"

#include <QStringList>

using portable::CameraSet;
using portable::UsbDevice;

namespace {

/// The list of USB devices as the interface returns it.
char *usbList(const char *function, QString (*part)(const UsbDevice &device))
{
    QStringList parts;
    for (const UsbDevice &device : portable::listUsbDevices()) {
        parts << part(device);
    }
    if (parts.isEmpty()) {
        portable::logFailure(
            function, QStringLiteral("this machine has no USB: nothing in /sys/bus/usb/devices"));
    }
    return portable::heapText(parts.join(QLatin1Char('|')));
}

} // namespace

namespace portable::api {

char *sGetDevicesId()
{
    return usbList(__func__, [](const UsbDevice &device) { return device.identifier(); });
}

char *sEnumUSBDevice()
{
    return usbList(__func__, [](const UsbDevice &device) { return device.label(); });
}

char *sGetSerialNum()
{
    const auto preview = CameraSet::instance().mainCamera();
    const int camera = preview ? preview->number() : 1;
    const QString node = CameraSet::instance().devicePath(camera);
    const QString number =
        node.isEmpty() ? QString() : portable::usbDeviceOfVideoNode(node).serialNumber;
    if (number.isEmpty()) {
        const QString reason = node.isEmpty() ? QStringLiteral("it is no device of this machine")
                                              : node + QStringLiteral(" has none");
        portable::logFailure(__func__,
                             QStringLiteral("%1 has no serial number: %2")
                                 .arg(portable::cameraName(camera), reason));
    }
    return portable::heapText(number);
}

} // namespace portable::api
