// SPDX-License-Identifier: MIT
#include "portable/camera/testscenesource.h"

#include "portable/camera/pageturning.h"

namespace portable {

TestSceneSource::TestSceneSource(const cv::Size &defaultSize, double framesPerSecond,
                                 base::Clock &clock)
    : m_defaultSize(defaultSize)
    , m_framesPerSecond(framesPerSecond)
    , m_clock(clock)
{
}

bool TestSceneSource::open(const cv::Size &wanted, QString * /*error*/)
{
    m_scene = std::make_unique<TestScene>(sizeFor(wanted));
    m_pool.clear(); // its frames show the previous scene
    m_page = m_shownPage = 1;
    return true;
}

void TestSceneSource::close()
{
    m_scene.reset();
    m_pool.clear();
}

bool TestSceneSource::read(cv::Mat &frame, QString * /*error*/)
{
    turnPages();
    bool fresh = false;
    frame = m_pool.take(m_scene->background().size(), &fresh);
    if (fresh) {
        m_scene->background().copyTo(frame);
    }
    m_scene->drawClock(frame, QTime::currentTime());
    return true;
}

/// Takes the sheet away, or puts the next one down, when it is time.
void TestSceneSource::turnPages()
{
    const auto now = m_clock.now();
    if (!PageTurning::isOn()) {
        m_since = now;
        put(m_page);
        return;
    }
    if (now - m_since >= sheetPeriod + emptyPeriod) {
        ++m_page;
        m_since = now;
    }
    put(now - m_since >= sheetPeriod ? 0 : m_page);
}

void TestSceneSource::put(int page)
{
    if (page != m_shownPage) {
        m_shownPage = page;
        m_scene->putSheet(page);
        m_pool.clear();
    }
}

std::vector<cv::Size> TestSceneSource::sizes() const
{
    return {{2592, 1944}, {1920, 1080}, {1600, 1200}, {1280, 720},
            {1024, 768},  {800, 600},   {640, 480}};
}

cv::Size TestSceneSource::sizeFor(const cv::Size &wanted) const
{
    return chooseSize(sizes(), wanted.empty() ? m_defaultSize : wanted);
}

} // namespace portable
