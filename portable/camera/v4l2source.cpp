// SPDX-License-Identifier: MIT
#include "portable/camera/v4l2source.h"

#include <QFile>

#include <algorithm>

namespace portable {

namespace {

constexpr double requestedFramesPerSecond = 30; // cameras deliver up to this
constexpr int64 frameWaitNs = 2'000'000'000;
constexpr int64 firstFrameWaitNs = 5'000'000'000; // some adapt to the light first
constexpr int maxDamagedFrames = 10; // in a row; bad cables corrupt some MJPEG frames

QString obstacleOr(const QString &path, const QString &otherwise)
{
    const QString obstacle = v4l2Obstacle(path);
    return obstacle.isEmpty() ? otherwise : obstacle;
}

/// Waits for the next frame. \return false when none came or the device reports an error
bool hasFrame(const cv::VideoCapture &capture, int64 waitNs)
{
    try {
        std::vector<int> ready;
        return cv::VideoCapture::waitAny({capture}, ready, waitNs);
    } catch (const cv::Exception &) { // thrown when the device is gone
        return false;
    }
}

} // namespace

std::vector<CaptureProperty> captureProperties(const V4l2Formats &formats, const cv::Size &wanted)
{
    std::vector<CaptureProperty> properties;
    if (formats.hasMjpeg) { // the full rate at large sizes needs it, set before the size
        properties.emplace_back(cv::CAP_PROP_FOURCC, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'));
    }
    const cv::Size size = chooseSize(formats.sizes, wanted);
    if (!size.empty()) {
        properties.emplace_back(cv::CAP_PROP_FRAME_WIDTH, size.width);
        properties.emplace_back(cv::CAP_PROP_FRAME_HEIGHT, size.height);
    }
    properties.emplace_back(cv::CAP_PROP_FPS, requestedFramesPerSecond);
    return properties;
}

V4l2Source::V4l2Source(const QString &text, V4l2Lister lister)
    : m_text(text)
    , m_lister(std::move(lister))
{
}

QString V4l2Source::name() const
{
    return m_device.path.isEmpty() ? m_text : m_device.label();
}

QString V4l2Source::devicePath() const
{
    return find(m_lister()).path;
}

/// The last opened camera, though its node may have changed; else the one m_text refers to.
V4l2Device V4l2Source::find(const V4l2Devices &devices) const
{
    const auto same =
        std::find_if(devices.begin(), devices.end(), [this](const V4l2Device &device) {
            return !device.bus.isEmpty() && device.bus == m_device.bus
                && device.name == m_device.name;
        });
    if (same != devices.end()) {
        return *same;
    }
    const V4l2Device *found = findV4l2Device(devices, m_text);
    return found ? *found : V4l2Device();
}

bool V4l2Source::open(const cv::Size &wanted, QString *error)
{
    const V4l2Devices devices = m_lister();
    const V4l2Device device = find(devices);
    if (device.path.isEmpty()) {
        *error = QStringLiteral("there is no such camera; found: ") + v4l2Labels(devices);
        return false;
    }
    m_device = device;
    if (!m_capture.open(QFile::encodeName(device.path).toStdString(), cv::CAP_V4L2)) {
        *error = obstacleOr(device.path, QStringLiteral("it can't be opened as a camera"));
        return false;
    }
    for (const auto &[property, value] : captureProperties(v4l2Formats(device.path), wanted)) {
        m_capture.set(property, value);
    }
    m_hasDelivered = false;
    return true;
}

void V4l2Source::close()
{
    m_controls.reset();
    m_capture.release();
    m_pool.clear();
}

bool V4l2Source::read(cv::Mat &frame, QString *error)
{
    const cv::Size size(int(m_capture.get(cv::CAP_PROP_FRAME_WIDTH)),
                        int(m_capture.get(cv::CAP_PROP_FRAME_HEIGHT)));
    const int64 wait = m_hasDelivered ? frameWaitNs : firstFrameWaitNs;
    for (int attempt = 0; attempt < maxDamagedFrames; ++attempt) {
        if (!hasFrame(m_capture, wait) || !m_capture.grab()) {
            break;
        }
        frame = m_pool.take(size);
        if (m_capture.retrieve(frame)) {
            m_hasDelivered = true;
            return true;
        }
    }
    m_capture.release(); // or v4l2Obstacle() would find it busy with us
    *error = obstacleOr(m_device.path, QStringLiteral("it delivers no frames"));
    return false;
}

std::vector<cv::Size> V4l2Source::sizes() const
{
    const V4l2Device device = find(m_lister());
    return device.path.isEmpty() ? std::vector<cv::Size>() : v4l2Formats(device.path).sizes;
}

Adjustments V4l2Source::adjust(const Adjustments &wanted)
{
    return controls().adjust(wanted);
}

bool V4l2Source::focus()
{
    return controls().focus();
}

V4l2Controls &V4l2Source::controls()
{
    if (!m_controls) {
        m_controls = std::make_unique<V4l2Controls>(m_device.path);
    }
    return *m_controls;
}

} // namespace portable
