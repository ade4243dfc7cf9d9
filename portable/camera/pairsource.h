// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/framesource.h"
#include "portable/picture/framepool.h"

#include <memory>

namespace portable {

/// Two sources side by side in one frame, which is as high as the left one's.
class PairSource : public FrameSource
{
public:
    PairSource(std::unique_ptr<FrameSource> left, std::unique_ptr<FrameSource> right);

    QString name() const override;
    QString devicePath() const override { return m_left->devicePath(); }
    bool open(const cv::Size &wanted, QString *error) override;
    void close() override;
    bool read(cv::Mat &frame, QString *error) override;
    base::Clock::Duration age() const override { return m_left->age(); }
    bool canSkip() const override { return m_left->canSkip() || m_right->canSkip(); }
    bool skip(QString *error) override;
    double framesPerSecond() const override;
    std::vector<cv::Size> sizes() const override;
    bool focus() override;

private:
    /// A frame, and where in it the pictures go.
    struct Places
    {
        cv::Mat frame;
        cv::Mat left;
        cv::Mat right;
    };

    Places take();

    const std::unique_ptr<FrameSource> m_left;
    const std::unique_ptr<FrameSource> m_right;
    cv::Size m_leftSize; // of the last pictures
    cv::Size m_rightSize;
    FramePool m_pool;
};

} // namespace portable
