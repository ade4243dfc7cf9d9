// SPDX-License-Identifier: MIT
// For the ioctls see the kernel's "Video for Linux API".
#include "portable/camera/v4l2devices.h"

#include "portable/camera/framesource.h"
#include "portable/camera/usbdevices.h"
#include "portable/camera/v4l2node.h"
#include "portable/camera/v4l2pixels.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <linux/videodev2.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <set>

namespace portable {

namespace {

template <size_t size> QString text(const __u8 (&field)[size])
{
    const auto *characters = reinterpret_cast<const char *>(field);
    return QString::fromUtf8(characters, int(qstrnlen(characters, size)));
}

/// First line of a sysfs file; empty when absent.
QString firstLine(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readLine()).trimmed()
                                          : QString();
}

/// Fills in the device of a node. \return false when it isn't a camera
bool describe(V4l2Device &device, const QString &sysfs)
{
    const QString classFolder =
        sysfs + QStringLiteral("/class/video4linux/") + QFileInfo(device.path).fileName();
    const UsbDevice usb = usbDeviceOfVideoNode(device.path, sysfs);
    device.usbIds =
        usb.vendorId.isEmpty() ? QString() : usb.vendorId + QLatin1Char(':') + usb.productId;
    const V4l2Node node(device.path);
    if (!node.isOpen()) {
        const int obstacle = errno;
        // Its capabilities are unknown, but a camera's first node is the capture node. It must be
        // in the list: a camera in use or forbidden is not a missing one.
        device.name = firstLine(classFolder + QStringLiteral("/name"));
        const QString index = firstLine(classFolder + QStringLiteral("/index"));
        return index == QLatin1String("0")
            || (index.isEmpty() && (obstacle == EBUSY || obstacle == EACCES || obstacle == EPERM));
    }
    auto capability = zeroed<v4l2_capability>();
    if (!node.ioctl(VIDIOC_QUERYCAP, capability)) {
        return errno == EBUSY;
    }
    device.name = text(capability.card);
    device.bus = text(capability.bus_info);
    // Not `capabilities`, which are those of all nodes of the device.
    return (capability.device_caps & V4L2_CAP_VIDEO_CAPTURE) != 0;
}

/// The number in "video<number>"; other names sort last.
int nodeNumber(const QString &name)
{
    bool isNumber = false;
    const int number = name.mid(int(std::strlen("video"))).toInt(&isNumber);
    return isNumber ? number : std::numeric_limits<int>::max();
}

/// Adds the common sizes within a stepwise range, and its maximum.
void addSteps(std::vector<cv::Size> &sizes, const v4l2_frmsize_stepwise &range)
{
    const cv::Size common[] = {{3840, 2160}, {3264, 2448}, {2592, 1944}, {2048, 1536},
                               {1920, 1080}, {1600, 1200}, {1280, 960},  {1280, 720},
                               {1024, 768},  {800, 600},   {640, 480},   {320, 240}};
    const auto fits = [](int value, __u32 smallest, __u32 largest, __u32 step) {
        const auto size = __u32(value);
        return size >= smallest && size <= largest && (size - smallest) % qMax(step, 1U) == 0;
    };
    for (const cv::Size &size : common) {
        if (fits(size.width, range.min_width, range.max_width, range.step_width)
            && fits(size.height, range.min_height, range.max_height, range.step_height)) {
            sizes.push_back(size);
        }
    }
    sizes.emplace_back(int(range.max_width), int(range.max_height));
}

void addSizes(std::vector<cv::Size> &sizes, const V4l2Node &node, __u32 pixelFormat)
{
    auto entry = zeroed<v4l2_frmsizeenum>();
    entry.pixel_format = pixelFormat;
    for (; node.ioctl(VIDIOC_ENUM_FRAMESIZES, entry); ++entry.index) {
        if (entry.type != V4L2_FRMSIZE_TYPE_DISCRETE) {
            addSteps(sizes, entry.stepwise);
            return; // a range has one entry only
        }
        sizes.emplace_back(int(entry.discrete.width), int(entry.discrete.height));
    }
}

QString errorText(int error)
{
    switch (error) {
    case ENOENT:
    case ENODEV:
    case ENXIO:
        return QStringLiteral("it is not there (unplugged?)");
    case EACCES:
    case EPERM:
        return QStringLiteral("no permission to open it (is this user in the group \"video\"?)");
    case EBUSY:
        return QStringLiteral("it is in use by another program");
    case ENOTTY:
        return QStringLiteral("it is not a camera");
    default:
        return qt_error_string(error);
    }
}

} // namespace

QString V4l2Device::label() const
{
    return usbIds.isEmpty() ? QStringLiteral("%1 (%2)").arg(path, name)
                            : QStringLiteral("%1 (%2, %3)").arg(path, name, usbIds);
}

V4l2Devices listV4l2Devices()
{
    return v4l2DevicesIn(QStringLiteral("/dev"), QStringLiteral("/sys"));
}

V4l2Devices v4l2DevicesIn(const QString &dev, const QString &sysfs)
{
    const QDir folder(dev);
    QStringList names = folder.entryList({QStringLiteral("video*")}, QDir::System);
    std::sort(names.begin(), names.end(), [](const QString &a, const QString &b) {
        return std::make_pair(nodeNumber(a), a) < std::make_pair(nodeNumber(b), b);
    });
    V4l2Devices devices;
    for (const QString &name : qAsConst(names)) {
        V4l2Device device;
        device.path = folder.filePath(name);
        if (describe(device, sysfs)) {
            devices.push_back(device);
        }
    }
    return devices;
}

const V4l2Device *findV4l2Device(const V4l2Devices &devices, const QString &text)
{
    const bool isPath = text.startsWith(QLatin1Char('/'));
    const QString target = QFileInfo(text).canonicalFilePath();
    const auto found = std::find_if(devices.begin(), devices.end(), [&](const V4l2Device &device) {
        return isPath ? device.path == text || device.path == target
                      : device.name.contains(text, Qt::CaseInsensitive)
                || device.usbIds.contains(text, Qt::CaseInsensitive);
    });
    return found != devices.end() ? &*found : nullptr;
}

QString v4l2Labels(const V4l2Devices &devices)
{
    QStringList labels;
    for (const V4l2Device &device : devices) {
        labels << device.label();
    }
    return labels.isEmpty() ? QStringLiteral("none") : labels.join(QStringLiteral(", "));
}

std::vector<unsigned> V4l2Formats::codesFor(const cv::Size &size) const
{
    std::vector<unsigned> listing;
    std::vector<unsigned> others;
    for (const auto &[code, codeSizes] : all) {
        const bool lists = std::find(codeSizes.begin(), codeSizes.end(), size) != codeSizes.end();
        (lists ? listing : others).push_back(code);
    }
    listing.insert(listing.end(), others.begin(), others.end());
    return listing;
}

V4l2Formats v4l2Formats(const QString &path)
{
    const V4l2Node node(path);
    std::set<unsigned> offered;
    auto format = zeroed<v4l2_fmtdesc>();
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    for (; node.ioctl(VIDIOC_ENUM_FMT, format); ++format.index) {
        offered.insert(format.pixelformat);
    }
    V4l2Formats formats;
    for (const unsigned code : decodableCodes()) {
        if (offered.count(code) == 0) {
            continue;
        }
        std::vector<cv::Size> sizes;
        addSizes(sizes, node, code);
        if (formats.sizes.empty() || formats.all.front().first != V4L2_PIX_FMT_MJPEG
            || formats.all.front().second.empty()) {
            formats.sizes.insert(formats.sizes.end(), sizes.begin(), sizes.end());
        }
        formats.all.emplace_back(code, std::move(sizes));
    }
    sortSizes(formats.sizes);
    return formats;
}

QString v4l2Obstacle(const QString &path)
{
    const V4l2Node node(path);
    if (!node.isOpen()) {
        return errorText(errno);
    }
    // Setting the current format changes nothing, but fails while another program streams.
    auto format = zeroed<v4l2_format>();
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    const bool usable = node.ioctl(VIDIOC_G_FMT, format) && node.ioctl(VIDIOC_S_FMT, format);
    return usable ? QString() : errorText(errno);
}

} // namespace portable
