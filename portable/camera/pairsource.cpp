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
}

bool PairSource::read(cv::Mat &frame, QString *error)
{
    cv::Mat left;
    cv::Mat right;
    if (!m_left->read(left, error)) {
        return prefixError(m_left->name(), error);
    }
    if (!m_right->read(right, error)) {
        return prefixError(m_right->name(), error);
    }
    const cv::Size beside = atHeight(right.size(), left.rows);
    frame = m_pool.take({left.cols + beside.width, left.rows});
    left.copyTo(frame.colRange(0, left.cols));
    cv::resize(right, frame.colRange(left.cols, frame.cols),
               beside); // copies if the sizes are equal
    return true;
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
