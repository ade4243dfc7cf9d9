// SPDX-License-Identifier: MIT
#include "portable/camera/usbdevices.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

namespace portable {

namespace {

/// First line of a device's attribute; empty when absent.
QString attribute(const QDir &device, const char *name)
{
    QFile file(device.filePath(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readLine()).simplified()
                                          : QString();
}

/// An attribute of four hexadecimal digits, in lower case; empty when it is anything else.
QString idAttribute(const QDir &device, const char *name)
{
    static const QRegularExpression form(QStringLiteral("\\A[0-9a-f]{4}\\z"));
    const QString id = attribute(device, name).toLower();
    return form.match(id).hasMatch() ? id : QString();
}

/// A device without vendorId when the folder isn't a device's: interfaces have folders too.
UsbDevice readDevice(const QDir &folder)
{
    UsbDevice device;
    device.vendorId = idAttribute(folder, "idVendor");
    device.productId = idAttribute(folder, "idProduct");
    if (device.vendorId.isEmpty() || device.productId.isEmpty()) {
        return {};
    }
    device.product = attribute(folder, "product");
    device.serialNumber = attribute(folder, "serial");
    return device;
}

} // namespace

QString UsbDevice::identifier() const
{
    return QStringLiteral("usb#vid_%1&pid_%2").arg(vendorId, productId);
}

QString UsbDevice::label() const
{
    QString name = product;
    name.replace(QLatin1Char('|'), QLatin1Char('/')); // "|" separates devices
    return QStringLiteral("%1 %2").arg(identifier(), name).trimmed();
}

std::vector<UsbDevice> listUsbDevices(const QString &sysfs)
{
    const QDir bus(sysfs + QStringLiteral("/bus/usb/devices"));
    std::vector<UsbDevice> devices;
    for (const QString &name : bus.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const UsbDevice device = readDevice(QDir(bus.filePath(name)));
        if (!device.vendorId.isEmpty()) {
            devices.push_back(device);
        }
    }
    return devices;
}

UsbDevice usbDeviceOfVideoNode(const QString &node, const QString &sysfs)
{
    // Links to the folder of the USB interface, below the device's; drivers may add levels.
    const QFileInfo link(
        QStringLiteral("%1/class/video4linux/%2/device").arg(sysfs, QFileInfo(node).fileName()));
    const QString root = QFileInfo(sysfs).canonicalFilePath() + QLatin1Char('/');
    for (QString path = link.canonicalFilePath(); path.startsWith(root);
         path = QFileInfo(path).path()) {
        UsbDevice device = readDevice(QDir(path));
        if (!device.vendorId.isEmpty()) {
            return device;
        }
    }
    return {};
}

} // namespace portable
