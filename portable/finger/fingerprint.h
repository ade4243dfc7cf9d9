// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <opencv2/core.hpp>

#include <vector>

namespace portable {

/// Where a ridge ends or forks.
struct Minutia
{
    cv::Point2f place; ///< In pixels.
    float direction = 0; ///< Into the ridge, or into the stem of the fork; 0 to 2 pi, clockwise.
    bool isFork = false;
};

using Minutiae = std::vector<Minutia>;

/// What a picture of a finger shows.
struct Fingerprint
{
    Minutiae minutiae; ///< At most maxMinutiae, the clearest of them.
    int quality = 0; ///< 0 to 100, of the picture; 0 when there is no finger in it.
};

constexpr size_t maxMinutiae = 100;

/**
 * Finds the minutiae: ridge direction by the structure tensor, ridges by filters along it, thinned
 * to lines whose crossing number tells ends and forks.
 * \param picture  8-bit grey, dark ridges, about 500 dpi as sensors deliver it (a ridge each 6 to
 * 14 pixels)
 */
Fingerprint readFingerprint(const cv::Mat &picture);

/**
 * How alike two fingers are, 0 to 100, however they lay on the sensor: which share of the minutiae
 * in the part that both show coincide, when they are laid upon each other as well as possible.
 */
int fingerScore(const Minutiae &a, const Minutiae &b);

/// Minutiae as text, see FeatureWriter.
QByteArray fingerFeature(const Minutiae &minutiae);

/**
 * Reads one feature of those that stand one after another.
 * \param text  moved behind it; ends with a NUL. Left where it is on failure.
 * \return false at the end, and for anything that fingerFeature() didn't make
 */
bool readFingerFeature(const char **text, Minutiae *minutiae);

/**
 * Passes over one that can't be read.
 * \param text  not empty; ends with a NUL
 * \return where another may begin; null without one
 */
const char *nextFingerFeature(const char *text);

} // namespace portable
