// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/framesource.h"
#include "portable/camera/testscene.h"
#include "portable/picture/framepool.h"

#include <memory>

namespace portable {

/// The built-in desk scene as a source; a frame costs the painting of its clock.
class SceneSource : public FrameSource
{
public:
    /// \param usualSize  the size without a wish, or the nearest to it of sizes()
    SceneSource(const cv::Size &usualSize, double framesPerSecond);

    QString name() const override { return QStringLiteral("desk scene"); }
    bool open(const cv::Size &wanted, QString *error) override;
    void close() override;
    bool read(cv::Mat &frame, QString *error) override;
    double framesPerSecond() const override { return m_framesPerSecond; }
    std::vector<cv::Size> sizes() const override;
    cv::Size sizeFor(const cv::Size &wanted) const override;

private:
    const cv::Size m_usualSize;
    const double m_framesPerSecond;
    std::unique_ptr<TestScene> m_scene; // while open
    FramePool m_pool;
};

} // namespace portable
