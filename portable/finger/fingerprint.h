// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <opencv2/core.hpp>

#include <vector>

namespace portable {

/// Where a ridge ends or forks.
struct Minutia
{
    cv::Point2f place; ///< In pixels, from the top left corner.
    float direction = 0; ///< Into the ridge, or into the stem of the fork; 0 to 2 pi, clockwise.
    bool isFork = false;
};

using Minutiae = std::vector<Minutia>;

/// The result of reading a picture of a finger.
struct Fingerprint
{
    Minutiae minutiae; ///< The clearest, at most maxMinutiae.
    int quality = 0; ///< Of the picture, 0 to 100; 0 when it shows no finger.
};

constexpr size_t maxMinutiae = 100;

/**
 * Finds the minutiae: takes the ridge direction from the structure tensor, filters along it, thins
 * the ridges to lines and finds ends and forks by their crossing number.
 * \param picture  8-bit gray, dark ridges, about 500 dpi as sensors deliver it (one ridge every 6
 *                 to 14 pixels)
 */
Fingerprint readFingerprint(const cv::Mat &picture);

/**
 * Similarity of two fingers, 0 to 100, independent of their rotation and position on the sensor:
 * the share of minutiae that coincide in the area both show, under the best alignment.
 */
int fingerScore(const Minutiae &a, const Minutiae &b);

/// Minutiae as text, see FeatureWriter.
QByteArray fingerFeature(const Minutiae &minutiae);

/**
 * Parses the first of several concatenated features.
 * \param text  NUL-terminated; advanced past the feature, unchanged on failure
 * \return false at the end, and for anything fingerFeature() didn't produce
 */
bool readFingerFeature(const char **text, Minutiae *minutiae);

/**
 * Skips a feature that can't be parsed.
 * \param text  not empty, NUL-terminated
 * \return where the next one may begin, or null
 */
const char *nextFingerFeature(const char *text);

} // namespace portable
