// SPDX-License-Identifier: MIT
/**
 * \file
 * The USB devices of this machine, read from sysfs (Documentation/ABI/stable/sysfs-bus-usb of the
 * kernel). It holds what is asked for here, names and serial numbers included, and lets every user
 * read it; reading these from the devices themselves needs permission for each.
 */
#pragma once

#include <QString>

#include <vector>

namespace portable {

struct UsbDevice
{
    QString vendorId; ///< Four lower-case hexadecimal digits, as productId.
    QString productId;
    QString product; ///< As the device calls itself; empty when it doesn't, as serialNumber.
    QString serialNumber;

    /// "usb#vid_0c45&pid_6366"
    QString identifier() const;

    /// The same and what the device calls itself: "usb#vid_0c45&pid_6366 HD Camera".
    QString label() const;
};

/**
 * Every device on the bus, hubs included, in the order of the ports they are plugged into.
 * \param sysfs  where sysfs is mounted
 */
std::vector<UsbDevice> listUsbDevices(const QString &sysfs = QStringLiteral("/sys"));

/**
 * The USB device that a camera's node belongs to.
 * \param node  "/dev/video0"
 * \return without a vendorId when the node isn't there or is not on USB
 */
UsbDevice usbDeviceOfVideoNode(const QString &node, const QString &sysfs = QStringLiteral("/sys"));

} // namespace portable
