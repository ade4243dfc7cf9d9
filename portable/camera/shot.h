// SPDX-License-Identifier: MIT
#pragma once

#include "portable/picture/resolution.h"

#include <opencv2/core.hpp>

namespace portable {

/**
 * One capture, as the settings have it: the newest frame of the preview, cut to the crop area (mode
 * 1) or to the page that was found, straightened (mode 2; the whole picture when none is found),
 * with the watermark stamped on it. \return BGR, the caller's own to change; empty, with a line in
 * the log, without a running camera
 */
cv::Mat takeShot();

/// The same without a watermark, for what reads the picture (barcodes, movement).
cv::Mat takePlainShot();

/// What pictures are written with.
Dpi shotDpi();
int shotQuality(); ///< JPEG quality, 1 to 100

} // namespace portable
