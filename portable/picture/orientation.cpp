// SPDX-License-Identifier: MIT
#include "portable/picture/orientation.h"

namespace portable {

bool isRotation(int degrees)
{
    return degrees == 0 || degrees == 90 || degrees == 180 || degrees == 270;
}

bool isFlip(int mode)
{
    return mode >= 0 && mode <= 3;
}

cv::Mat turned(const cv::Mat &frame, const Orientation &orientation, FramePool &pool)
{
    // Each of the eight orientations is at most a transposition, then mirrors along the axes.
    const int quarters = orientation.rotation / 90;
    const bool transposed = quarters % 2 != 0;
    const bool leftRight = (quarters == 1 || quarters == 2) != ((orientation.flip & 1) != 0);
    const bool upsideDown = (quarters == 2 || quarters == 3) != ((orientation.flip & 2) != 0);
    if (!transposed && !leftRight && !upsideDown) {
        return frame;
    }
    cv::Mat result = pool.take(transposed ? cv::Size(frame.rows, frame.cols) : frame.size());
    if (transposed) {
        cv::transpose(frame, result);
    }
    if (leftRight || upsideDown) {
        const int axis = !leftRight ? 0 : upsideDown ? -1 : 1; // as cv::flip numbers them
        cv::flip(transposed ? result : frame, result, axis);
    }
    return result;
}

} // namespace portable
