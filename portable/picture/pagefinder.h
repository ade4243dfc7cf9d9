// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

#include <array>
#include <optional>

namespace portable {

/// The corners of a page in a picture: top left, top right, bottom right, bottom left.
using PageCorners = std::array<cv::Point2f, 4>;

/**
 * Looks for the one sheet, book or card that differs most from what lies along the edges of the
 * picture. Takes a few milliseconds.
 * \param picture  8-bit BGR
 * \return nothing when there is none, when it has the color of the desk, or is smaller than a
 *         hundredth of the picture
 */
std::optional<PageCorners> findPage(const cv::Mat &picture);

/**
 * The page cut out and made rectangular, in its own proportions and about its size in the picture;
 * then turned by the few degrees that its lines of text may be askew on it.
 * \return 8-bit BGR, with pixels of its own
 */
cv::Mat straightened(const cv::Mat &picture, const PageCorners &corners);

/// findPage and straightened; empty when there is no page.
cv::Mat straightenedPage(const cv::Mat &picture);

/**
 * How much the lines of text on a page rise or fall: degrees, positive when they fall to the right.
 * \param page  8-bit BGR or grey
 * \return 0 when it isn't plain, and beyond 5 degrees
 */
double skewAngle(const cv::Mat &page);

} // namespace portable
