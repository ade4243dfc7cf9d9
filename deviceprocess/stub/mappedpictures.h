// SPDX-License-Identifier: MIT
#pragma once

#include "deviceprocess/wire.h"

#include <QImage>
#include <opencv2/core.hpp>

#include <functional>
#include <memory>

namespace deviceprocess {

/// Gives pixels back to the host that they came from.
using ReleasePixels = std::function<void()>;

/**
 * Takes a picture out of a reply, sharing the host's memory, read-only. Nothing is believed: sizes
 * are checked against what is there.
 * \param release  makes the function that is called when the last copy of the picture goes
 * \return false when the reply is damaged; a picture that isn't there is empty
 */
bool readPicture(Reader &reader, const std::function<ReleasePixels(std::uint64_t held)> &release,
                 cv::Mat *picture);
bool readPicture(Reader &reader, const std::function<ReleasePixels(std::uint64_t held)> &release,
                 QImage *picture);

/// Forgets mappings that are kept for the next pictures, as soon as nobody looks at them.
void forgetMappings();

} // namespace deviceprocess
