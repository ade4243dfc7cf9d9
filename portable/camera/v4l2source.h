// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/framesource.h"
#include "portable/camera/v4l2controls.h"
#include "portable/camera/v4l2devices.h"
#include "portable/camera/v4l2pixels.h"
#include "portable/camera/v4l2stream.h"

#include <memory>
#include <vector>

namespace portable {

/// A V4L2 camera.
class V4l2Source : public FrameSource
{
public:
    /// \param text  identifies the camera for findV4l2Device(); looked up by each open()
    explicit V4l2Source(const QString &text, V4l2Lister lister = listV4l2Devices);

    QString name() const override;
    QString devicePath() const override;
    bool open(const cv::Size &wanted, QString *error) override;
    void close() override;
    bool read(cv::Mat &frame, QString *error) override;
    base::Clock::Duration age() const override { return m_age; }
    bool canSkip() const override { return true; }
    bool skip(QString *error) override;
    double framesPerSecond() const override { return 0; }
    std::vector<cv::Size> sizes() const override;
    Adjustments adjust(const Adjustments &wanted) override;
    bool focus() override;

private:
    V4l2Device find(const V4l2Devices &devices) const;
    V4l2Controls &controls();
    V4l2Stream::Next pastDamage(const V4l2Stream::Use &use);
    bool fail(QString *error);

    const QString m_text;
    const V4l2Lister m_lister;
    V4l2Device m_device; // the last one opened; no path before
    std::unique_ptr<V4l2Stream> m_stream; // while open
    std::unique_ptr<V4l2Pixels> m_pixels; // while open
    std::unique_ptr<V4l2Controls> m_controls; // while open, created on first use
    base::Clock::Duration m_age{}; // of the last frame that was read
    bool m_hasDelivered = false; // since open()
    bool m_toleratesDamage = false; // since open(): all frames were damaged
};

} // namespace portable
