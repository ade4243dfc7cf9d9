// SPDX-License-Identifier: MIT
#include "portable/face/liveness.h"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>

namespace portable {

namespace {

// Measured on photographs: eyes with lids painted over them kept 0.6 of their contrast on average;
// shifting the detector's box changed it by 0.05 at most.
constexpr double minSeconds = 1.5; // with the same person
constexpr double historySeconds = 6;
constexpr double maxGap = 0.6; // in seconds, between samples of one person
constexpr double maxBlink = 0.8; // in seconds
constexpr size_t minSamples = 8; // before the median contrast is meaningful
constexpr float closedEyes = 0.78F; // of the median contrast, at most
constexpr float openEyes = 0.9F; // of the median contrast, at least
constexpr float stillCenter = 0.25F; // limit of movement during a blink, in eye distances
constexpr float stillTurn = 0.1F; // the same for turn and nod
constexpr float movedTurn = 0.16F; // between the extremes of a head movement
constexpr float jump = 1.5F; // movement between two samples, in eye distances: another face

const cv::Size eyePatch(64, 32); // pixels; the eye corners are at a quarter and three quarters
const cv::Rect eyeMiddle(18, 4, 28, 24);

float contrastOfEye(const cv::Mat &picture, const FacePoints &points, size_t corner)
{
    const cv::Point2f left = points[corner];
    const cv::Point2f right = points[corner + 3];
    const cv::Point2f across(left.y - right.y, right.x - left.x);
    const std::array<cv::Point2f, 3> from{left, right, (left + right + across) * 0.5F};
    const std::array<cv::Point2f, 3> to{
        {{16, 16}, {48, 16}, {32, 32}}}; // the third is half an eye width below the middle
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

template <class Samples> float medianContrast(const Samples &samples)
{
    std::vector<float> values;
    for (const FaceSample &sample : samples) {
        values.push_back(sample.eyeContrast);
    }
    const auto middle = values.begin() + std::ptrdiff_t(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

/// Movement between two samples in eye distances.
float movementOf(const FaceSample &a, const FaceSample &b)
{
    const float pixels = float(cv::norm(a.center - b.center));
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
    sample.center = (points[36] + points[45]) * 0.5F;
    sample.eyeDistance = std::sqrt(square);
    const cv::Point2f nose = points[30] - sample.center;
    sample.turn = eyes.dot(nose) / square;
    sample.nod = float(eyes.cross(nose)) / square;
    sample.eyeContrast =
        (contrastOfEye(picture, points, 36) + contrastOfEye(picture, points, 42)) / 2;
    return sample;
}

bool LivenessCheck::add(const FaceSample &sample)
{
    const bool isSame = !m_samples.empty() && isFollowedBy(sample);
    if (!isSame) { // forget what another face did
        *this = LivenessCheck();
        m_since = sample.seconds;
    }
    m_samples.push_back(sample);
    while (m_samples.front().seconds < sample.seconds - historySeconds) {
        m_samples.pop_front();
    }
    m_blinks += endsBlink() ? 1 : 0;
    noteMovement();
    return isSame;
}

bool LivenessCheck::hasPassed() const
{
    return hasBlinked() && hasMoved() && m_samples.back().seconds - m_since >= minSeconds;
}

bool LivenessCheck::isFollowedBy(const FaceSample &sample) const
{
    const FaceSample &last = m_samples.back();
    const float growth = sample.eyeDistance / std::max(last.eyeDistance, 1.0F);
    return sample.seconds - last.seconds <= maxGap && movementOf(last, sample) < jump
        && growth > 0.5F && growth < 2;
}

/// Whether the eyes have just opened again in the newest sample after a short closure.
bool LivenessCheck::endsBlink() const
{
    if (m_samples.size() < minSamples) {
        return false;
    }
    const float usual = medianContrast(m_samples);
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
    // Motion blur of a moving head takes contrast too: the head must have kept still.
    return wereClosed && before != m_samples.rend() && after.seconds - before->seconds <= maxBlink
        && movementOf(*before, after) < stillCenter
        && std::abs(before->turn - after.turn) < stillTurn
        && std::abs(before->nod - after.nod) < stillTurn;
}

/// Uses the median of three samples, so that one misplaced set of landmarks doesn't count.
void LivenessCheck::noteMovement()
{
    const auto range = [this](float FaceSample::*value) {
        float min = INFINITY;
        float max = -INFINITY;
        for (size_t i = 2; i < m_samples.size(); ++i) {
            const float a = m_samples[i - 2].*value;
            const float b = m_samples[i - 1].*value;
            const float c = m_samples[i].*value;
            const float middle = std::max(std::min(a, b), std::min(std::max(a, b), c));
            min = std::min(min, middle);
            max = std::max(max, middle);
        }
        return max - min;
    };
    m_moved =
        m_moved || range(&FaceSample::turn) >= movedTurn || range(&FaceSample::nod) >= movedTurn;
}

} // namespace portable
