// SPDX-License-Identifier: MIT
/**
 * \file
 * The USB devices of this machine, read from sysfs (Documentation/ABI/stable/sysfs-bus-usb of the
 * kernel). Every user may read names and serial numbers there; reading them from the devices would
 * need permission for each.
 */
#pragma once

#include <QString>

#include <vector>

namespace portable {

struct UsbDevice
{
    QString vendorId; ///< Four lower-case hexadecimal digits, like productId.
    QString productId;
    QString product; ///< The device's own name; may be empty, like serialNumber.
    QString serialNumber;

    /// "usb#vid_0c45&pid_6366"
    QString identifier() const;

    /// The identifier and the product: "usb#vid_0c45&pid_6366 HD Camera".
    QString label() const;
};

/**
 * All USB devices, including hubs, in the order of their ports.
 * \param sysfs  where sysfs is mounted
 */
std::vector<UsbDevice> listUsbDevices(const QString &sysfs = QStringLiteral("/sys"));

/**
 * The USB device of a camera's node.
 * \param node  "/dev/video0"
 * \return a device without vendorId when the node doesn't exist or isn't on USB
 */
UsbDevice usbDeviceOfVideoNode(const QString &node, const QString &sysfs = QStringLiteral("/sys"));

} // namespace portable
