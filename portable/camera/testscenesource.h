// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"
#include "portable/camera/framesource.h"
#include "portable/camera/testscene.h"
#include "portable/picture/framepool.h"

#include <memory>

namespace portable {

/// The built-in test scene, whose pages turn while there is a PageTurning. Only the clock is
/// painted for each frame.
class TestSceneSource : public FrameSource
{
public:
    /**
     * \param defaultSize  used when open() is asked for none; the nearest of sizes() is taken
     * \param clock        by which pages turn; must outlive the source
     */
    TestSceneSource(const cv::Size &defaultSize, double framesPerSecond,
                    base::Clock &clock = base::Clock::shared());

    QString name() const override { return QStringLiteral("desk scene"); }
    bool open(const cv::Size &wanted, QString *error) override;
    void close() override;
    bool read(cv::Mat &frame, QString *error) override;
    double framesPerSecond() const override { return m_framesPerSecond; }
    std::vector<cv::Size> sizes() const override;
    cv::Size sizeFor(const cv::Size &wanted) const override;

private:
    void turnPages();
    void put(int page);

    const cv::Size m_defaultSize;
    const double m_framesPerSecond;
    base::Clock &m_clock;
    std::unique_ptr<TestScene> m_scene; // while open
    int m_page = 1; // of the sheet that lies on the desk, or did before it was taken away
    int m_shownPage = 1; // 0: the desk is empty
    base::Clock::TimePoint m_since; // since when m_page has been there
    FramePool m_pool;
};

} // namespace portable
