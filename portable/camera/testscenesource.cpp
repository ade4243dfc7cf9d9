// SPDX-License-Identifier: MIT
#include "portable/camera/testscenesource.h"

namespace portable {

TestSceneSource::TestSceneSource(const cv::Size &defaultSize, double framesPerSecond)
    : m_defaultSize(defaultSize)
    , m_framesPerSecond(framesPerSecond)
{
}

bool TestSceneSource::open(const cv::Size &wanted, QString * /*error*/)
{
    m_scene = std::make_unique<TestScene>(sizeFor(wanted));
    m_pool.clear(); // its frames show the previous scene
    return true;
}

void TestSceneSource::close()
{
    m_scene.reset();
    m_pool.clear();
}

bool TestSceneSource::read(cv::Mat &frame, QString * /*error*/)
{
    bool fresh = false;
    frame = m_pool.take(m_scene->background().size(), &fresh);
    if (fresh) {
        m_scene->background().copyTo(frame);
    }
    m_scene->drawClock(frame, QTime::currentTime());
    return true;
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
