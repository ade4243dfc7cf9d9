// SPDX-License-Identifier: MIT
#pragma once

#include "portable/camera/settings.h"

namespace portable {

/// A capture and what it is written with, all as they were set at one moment.
struct Shot
{
    cv::Mat picture; ///< 8-bit BGR; empty when there is none. Not to be drawn on: see takeShot().
    int quality = 85; ///< Of a JPEG, 1 to 100.
    Dpi dpi;
};

/**
 * One capture as the settings ask for it: the newest frame of the preview, cropped to the area
 * (mode 1) or to the page, straightened (mode 2; the whole picture when no page is found), with the
 * watermark stamped on it. Callable from any thread.
 * \return an empty picture, with a line in the log, without a running camera. Others may look at
 * the same pixels: those of the preview, when nothing had to be done to them
 */
Shot takeShot();

/// The picture without a watermark, for what reads it, such as barcodes; its pixels as above.
cv::Mat takePlainShot();

/// The settings of captures at this moment, for pictures that aren't one but are written alike.
CaptureSettings captureSettings();

} // namespace portable
