// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/framesource.h"
#include "portable/camera/testscene.h"
#include "portable/picture/framepool.h"

#include <memory>

namespace portable {

/// The built-in test scene. Only the clock is painted for each frame.
class TestSceneSource : public FrameSource
{
public:
    /// \param defaultSize  used when open() is asked for none; the nearest of sizes() is taken
    TestSceneSource(const cv::Size &defaultSize, double framesPerSecond);

    QString name() const override { return QStringLiteral("desk scene"); }
    bool open(const cv::Size &wanted, QString *error) override;
    void close() override;
    bool read(cv::Mat &frame, QString *error) override;
    double framesPerSecond() const override { return m_framesPerSecond; }
    std::vector<cv::Size> sizes() const override;
    cv::Size sizeFor(const cv::Size &wanted) const override;

private:
    const cv::Size m_defaultSize;
    const double m_framesPerSecond;
    std::unique_ptr<TestScene> m_scene; // while open
    FramePool m_pool;
};

} // namespace portable
