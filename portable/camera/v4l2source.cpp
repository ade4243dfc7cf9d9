// SPDX-License-Identifier: MIT
#include "portable/camera/v4l2source.h"

#include "portable/base/failure.h"

#include <algorithm>

namespace portable {

namespace {

constexpr std::chrono::seconds frameWait{2};
/// Older frames have a wrong time: some cameras' clocks run wild.
constexpr std::chrono::milliseconds maxAge{500};
constexpr std::chrono::seconds firstFrameWait{5}; // some adapt to the light first
constexpr int maxDamagedFrames = 10; // in a row; bad cables corrupt some MJPEG frames

} // namespace

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
    const V4l2Formats formats = v4l2Formats(device.path);
    const cv::Size size = chooseSize(formats.sizes, wanted);
    const std::vector<unsigned> codes = formats.codesFor(size);
    m_stream =
        V4l2Stream::start(device.path, codes.empty() ? decodableCodes() : codes, size, error);
    if (!m_stream) {
        const QString obstacle = v4l2Obstacle(device.path);
        return setError(obstacle.isEmpty() ? *error : obstacle, error);
    }
    m_pixels = std::make_unique<V4l2Pixels>();
    m_hasDelivered = false;
    m_toleratesDamage = false;
    return true;
}

void V4l2Source::close()
{
    m_controls.reset();
    m_stream.reset();
    m_pixels.reset();
}

bool V4l2Source::read(cv::Mat &frame, QString *error)
{
    const auto decode = [&](const V4l2Bytes &bytes) {
        return m_pixels->decode(m_stream->format(), bytes, frame);
    };
    V4l2Stream::Next next = pastDamage(decode);
    if (next == V4l2Stream::Next::Damaged && !m_toleratesDamage) {
        // In the frames of some cameras there is always a flaw that hardly anybody sees.
        m_toleratesDamage = true;
        m_pixels->tolerateDamage();
        next = pastDamage(decode);
        if (next == V4l2Stream::Next::Good) {
            logWarning() << name() << "delivers damaged frames only: they are used as they are";
        }
    }
    if (next != V4l2Stream::Next::Good) {
        return fail(error);
    }
    const auto age = std::chrono::steady_clock::now() - m_stream->capturedAt();
    m_age = age > age.zero() && age < maxAge ? age : age.zero();
    return true;
}

bool V4l2Source::skip(QString *error)
{
    const auto leaveOut = [](const V4l2Bytes &) { return true; };
    return pastDamage(leaveOut) == V4l2Stream::Next::Good || fail(error);
}

/// Waits for the first whole frame. \return Damaged when too many in a row are
V4l2Stream::Next V4l2Source::pastDamage(const V4l2Stream::Use &use)
{
    auto next = V4l2Stream::Next::Damaged;
    for (int i = 0; i < maxDamagedFrames && next == V4l2Stream::Next::Damaged; ++i) {
        next = m_stream ? m_stream->next(m_hasDelivered ? frameWait : firstFrameWait, use)
                        : V4l2Stream::Next::None;
    }
    m_hasDelivered = m_hasDelivered || next == V4l2Stream::Next::Good;
    return next;
}

/// Ends the stream. \return false, with the reason
bool V4l2Source::fail(QString *error)
{
    m_stream.reset(); // or v4l2Obstacle() would find it busy with us
    const QString obstacle = v4l2Obstacle(m_device.path);
    return setError(obstacle.isEmpty() ? QStringLiteral("it delivers no frames") : obstacle, error);
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
