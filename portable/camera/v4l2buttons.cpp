// SPDX-License-Identifier: MIT
#include "portable/camera/v4l2buttons.h"

#include <QtDebug>
#include <linux/videodev2.h>

namespace portable {

namespace {

QString nameOf(const v4l2_queryctrl &control)
{
    const auto *name = reinterpret_cast<const char *>(control.name);
    return QString::fromUtf8(name, int(qstrnlen(name, sizeof control.name)));
}

bool isButton(const v4l2_queryctrl &control, const QString &wanted)
{
    if (wanted.isEmpty()) {
        return control.type == V4L2_CTRL_TYPE_BUTTON && V4L2_CTRL_DRIVER_PRIV(control.id);
    }
    bool isNumber = false;
    const unsigned number = wanted.toUInt(&isNumber, 0); // also 0x...
    return isNumber ? control.id == number
                    : nameOf(control).compare(wanted, Qt::CaseInsensitive) == 0;
}

} // namespace

V4l2Buttons::V4l2Buttons(const QString &path, const QString &control)
    : m_node(path)
{
    auto capability = zeroed<v4l2_capability>();
    if (m_node.isOpen() && m_node.ioctl(VIDIOC_QUERYCAP, capability)
        && (capability.device_caps & V4L2_CAP_VIDEO_CAPTURE) != 0) { // other nodes report the same
        subscribe(control);
    }
}

void V4l2Buttons::subscribe(const QString &control)
{
    auto query = zeroed<v4l2_queryctrl>();
    unsigned last = 0;
    for (;;) {
        query.id = last | V4L2_CTRL_FLAG_NEXT_CTRL;
        if (!m_node.ioctl(VIDIOC_QUERYCTRL, query) || query.id <= last) {
            return;
        }
        last = query.id;
        if (!isButton(query, control)) {
            continue;
        }
        auto subscription = zeroed<v4l2_event_subscription>();
        subscription.type = V4L2_EVENT_CTRL;
        subscription.id = query.id;
        if (m_node.ioctl(VIDIOC_SUBSCRIBE_EVENT, subscription)) {
            m_types[query.id] = query.type;
        } else {
            qWarning().noquote() << "portable: the camera doesn't report its control"
                                 << nameOf(query) << qt_error_string(errno);
        }
    }
}

std::optional<int> V4l2Buttons::takePresses()
{
    int presses = 0;
    auto event = zeroed<v4l2_event>();
    while (m_node.ioctl(VIDIOC_DQEVENT, event)) {
        const auto type = m_types.find(event.id);
        if (event.type == V4L2_EVENT_CTRL && type != m_types.end()
            && (event.u.ctrl.changes & V4L2_EVENT_CTRL_CH_VALUE) != 0
            && (type->second == V4L2_CTRL_TYPE_BUTTON || event.u.ctrl.value != 0)) {
            ++presses;
        }
    }
    if (errno != ENOENT && errno != EAGAIN) { // there is no other
        return {};
    }
    return presses;
}

} // namespace portable
