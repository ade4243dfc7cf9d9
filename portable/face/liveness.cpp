// SPDX-License-Identifier: MIT
#include "portable/face/liveness.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace portable {

namespace {

// The numbers of a check. Eyes closed in photographs by painting lids over them kept 0.6 of their
// contrast in the middle; another position of the detector's box changed it by 0.05 at most.
constexpr double leastSeconds = 1.5; // of one person
constexpr double rememberedSeconds = 6;
constexpr double longestGap = 0.6; // in seconds, between samples of one person
constexpr double longestBlink = 0.8; // in seconds
constexpr size_t leastSamples = 8; // before the usual contrast is known
constexpr float closedEyes = 0.78F; // of the usual contrast, at most
constexpr float openEyes = 0.9F; // of the usual contrast, at least
constexpr float stillCentre = 0.25F; // movement during a blink, in distances of the eyes
constexpr float stillTurn = 0.1F; // the same, of turn and nod
constexpr float movedTurn = 0.16F; // between the ends of a movement of the head
constexpr float jump = 1.5F; // in distances of the eyes: another face

const cv::Size eyePatch(64, 32); // pixels; the corners lie at a quarter and three quarters
const cv::Rect eyeMiddle(18, 4, 28, 24);

float contrastOfEye(const cv::Mat &picture, const FacePoints &points, size_t corner)
{
    const cv::Point2f left = points[corner];
    const cv::Point2f right = points[corner + 3];
    const cv::Point2f across(left.y - right.y, right.x - left.x);
    const std::array<cv::Point2f, 3> from{left, right, (left + right + across) * 0.5F};
    const std::array<cv::Point2f, 3> to{
        {{16, 16}, {48, 16}, {32, 32}}}; // the third is half an eye below the middle
    cv::Mat patch;
    cv::warpAffine(picture, patch, cv::getAffineTransform(from.data(), to.data()), eyePatch,
                   cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    cv::cvtColor(patch, patch, cv::COLOR_BGR2GRAY);
    cv::GaussianBlur(patch, patch, {3, 3}, 0);
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(patch(eyeMiddle), mean, deviation);
    return float(deviation[0] / std::max(mean[0], 1.0));
}

template <class Samples> float usualContrast(const Samples &samples)
{
    std::vector<float> values;
    for (const FaceSample &sample : samples) {
        values.push_back(sample.eyeContrast);
    }
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

float distanceInEyes(const FaceSample &a, const FaceSample &b)
{
    const float pixels = float(cv::norm(a.centre - b.centre));
    return pixels / std::max({a.eyeDistance, b.eyeDistance, 1.0F});
}

} // namespace

FaceSample sampleOf(const cv::Mat &picture, const SeenFace &face, double seconds)
{
    const FacePoints &points = face.points;
    const cv::Point2f eyes = points[45] - points[36]; // outer corner to outer corner
    const float square = std::max(eyes.dot(eyes), 1.0F);
    FaceSample sample;
    sample.seconds = seconds;
    sample.centre = (points[36] + points[45]) * 0.5F;
    sample.eyeDistance = std::sqrt(square);
    const cv::Point2f nose = points[30] - sample.centre;
    sample.turn = eyes.dot(nose) / square;
    sample.nod = float(eyes.cross(nose)) / square;
    sample.eyeContrast =
        (contrastOfEye(picture, points, 36) + contrastOfEye(picture, points, 42)) / 2;
    return sample;
}

bool LivenessCheck::add(const FaceSample &sample)
{
    const bool isSame = !m_samples.empty() && isFollowedBy(sample);
    if (!isSame) { // what another face did doesn't count for this one
        *this = LivenessCheck();
        m_since = sample.seconds;
    }
    m_samples.push_back(sample);
    while (m_samples.front().seconds < sample.seconds - rememberedSeconds) {
        m_samples.pop_front();
    }
    m_blinks += endsBlink() ? 1 : 0;
    noteMovement();
    return isSame;
}

bool LivenessCheck::hasPassed() const
{
    return hasBlinked() && hasMoved() && m_samples.back().seconds - m_since >= leastSeconds;
}

bool LivenessCheck::isFollowedBy(const FaceSample &sample) const
{
    const FaceSample &last = m_samples.back();
    const float growth = sample.eyeDistance / std::max(last.eyeDistance, 1.0F);
    return sample.seconds - last.seconds <= longestGap && distanceInEyes(last, sample) < jump
        && growth > 0.5F && growth < 2;
}

/// Whether the eyes are open again in the newest sample, after a short time of being closed.
bool LivenessCheck::endsBlink() const
{
    if (m_samples.size() < leastSamples) {
        return false;
    }
    const float usual = usualContrast(m_samples);
    const auto isOpen = [usual](const FaceSample &sample) {
        return sample.eyeContrast >= openEyes * usual;
    };
    const FaceSample &after = m_samples.back();
    if (!isOpen(after)) {
        return false;
    }
    bool wereClosed = false;
    auto before = m_samples.rbegin() + 1;
    for (; before != m_samples.rend() && !isOpen(*before); ++before) {
        wereClosed = wereClosed || before->eyeContrast <= closedEyes * usual;
    }
    // A head that moves is blurred, which takes contrast too.
    return wereClosed && before != m_samples.rend()
        && after.seconds - before->seconds <= longestBlink
        && distanceInEyes(*before, after) < stillCentre
        && std::abs(before->turn - after.turn) < stillTurn
        && std::abs(before->nod - after.nod) < stillTurn;
}

/// Looks at the middle one of three samples each, so that a single slip of the points is nothing.
void LivenessCheck::noteMovement()
{
    const auto range = [this](float FaceSample::*value) {
        float least = INFINITY;
        float most = -INFINITY;
        for (size_t i = 2; i < m_samples.size(); ++i) {
            const float a = m_samples[i - 2].*value;
            const float b = m_samples[i - 1].*value;
            const float c = m_samples[i].*value;
            const float middle = std::max(std::min(a, b), std::min(std::max(a, b), c));
            least = std::min(least, middle);
            most = std::max(most, middle);
        }
        return most - least;
    };
    m_moved =
        m_moved || range(&FaceSample::turn) >= movedTurn || range(&FaceSample::nod) >= movedTurn;
}

} // namespace portable
