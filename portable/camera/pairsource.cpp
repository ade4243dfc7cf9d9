// SPDX-License-Identifier: MIT
#include "portable/camera/pairsource.h"

#include "portable/base/failure.h"

#include <opencv2/imgproc.hpp>

#include <cmath>

namespace portable {

namespace {

/// `size` scaled to `height`.
cv::Size atHeight(const cv::Size &size, int height)
{
    return {int(std::lround(double(size.width) * height / size.height)), height};
}

} // namespace

PairSource::PairSource(std::unique_ptr<FrameSource> left, std::unique_ptr<FrameSource> right)
    : m_left(std::move(left))
    , m_right(std::move(right))
{
}

QString PairSource::name() const
{
    return m_left->name() + QStringLiteral(" beside ") + m_right->name();
}

bool PairSource::open(const cv::Size & /*wanted*/, QString *error)
{
    if (!m_left->open({}, error)) {
        return prefixError(m_left->name(), error);
    }
    if (!m_right->open({}, error)) {
        m_left->close();
        return prefixError(m_right->name(), error);
    }
    return true;
}

void PairSource::close()
{
    m_left->close();
    m_right->close();
    m_pool.clear();
    m_leftSize = m_rightSize = {};
}

bool PairSource::skip(QString *error)
{
    return (m_left->skip(error) || prefixError(m_left->name(), error))
        && (m_right->skip(error) || prefixError(m_right->name(), error));
}

bool PairSource::read(cv::Mat &frame, QString *error)
{
    // Pictures of the sizes of the last ones are put straight into the frame.
    Places places = take();
    cv::Mat left = places.left;
    cv::Mat right = m_rightSize == places.right.size() ? places.right : cv::Mat();
    if (!m_left->read(left, error)) {
        return prefixError(m_left->name(), error);
    }
    if (!m_right->read(right, error)) {
        return prefixError(m_right->name(), error);
    }
    if (left.size() != m_leftSize || right.size() != m_rightSize) {
        m_leftSize = left.size();
        m_rightSize = right.size();
        places = take();
    }
    if (left.data != places.left.data) {
        left.copyTo(places.left);
    }
    if (right.data != places.right.data) {
        cv::resize(right, places.right, places.right.size()); // copies if the sizes are equal
    }
    frame = places.frame;
    return true;
}

/// A frame for pictures of the sizes of the last ones; empty before the first.
PairSource::Places PairSource::take()
{
    if (m_leftSize.empty() || m_rightSize.empty()) {
        return {};
    }
    const int width = m_leftSize.width;
    cv::Mat frame =
        m_pool.take({width + atHeight(m_rightSize, m_leftSize.height).width, m_leftSize.height});
    return {frame, frame.colRange(0, width), frame.colRange(width, frame.cols)};
}

/// The slower one's rate; 0 if one of them is hardware.
double PairSource::framesPerSecond() const
{
    return std::min(m_left->framesPerSecond(), m_right->framesPerSecond());
}

std::vector<cv::Size> PairSource::sizes() const
{
    const cv::Size left = m_left->sizeFor({});
    const cv::Size right = m_right->sizeFor({});
    if (left.empty() || right.empty()) {
        return {};
    }
    return {{left.width + atHeight(right, left.height).width, left.height}};
}

bool PairSource::focus()
{
    const bool left = m_left->focus();
    return m_right->focus() || left;
}

} // namespace portable
