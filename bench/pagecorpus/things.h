// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

namespace pagecorpus {

/**
 * A hand and its sleeve that reach from the nearest edge of the picture to `tip`, with the shadow
 * they cast.
 */
void layHand(cv::RNG &random, cv::Mat &picture, const cv::Point2f &tip);

/// One thing that is no page: a pen, a mug, a coin, a mouse or a cable, with its shadow.
void layThing(cv::RNG &random, cv::Mat &picture);

/// A keyboard, anywhere and turned, some of it outside of the picture.
void layKeyboard(cv::RNG &random, cv::Mat &picture);

} // namespace pagecorpus
