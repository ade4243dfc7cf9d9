// SPDX-License-Identifier: MIT
#pragma once

#include "portable/base/backgroundjob.h"

#include <QString>
#include <opencv2/core.hpp>

namespace portable {

/// What came of waiting for a finger on a real sensor.
struct SensorPicture
{
    enum class Outcome {
        Picture,
        NoSensor,
        NoFinger,
        Unreadable, ///< There was a finger, but no picture of it.
        Failed ///< There is a sensor, but it can't be used.
    };

    Outcome outcome = Outcome::NoSensor;
    cv::Mat gray; ///< At 500 dpi, 8 bits; empty without a picture.
    QString why; ///< There is none, for the log.
};

/**
 * Waits for a finger on the first sensor that gives pictures, of those that libfprint knows. The
 * program `fingerworker` does so, and is ended at the deadline (by base::Clock::shared()) or when a
 * stop is requested.
 */
SensorPicture readSensor(BackgroundJob::Clock::time_point deadline,
                         const BackgroundJob::Stop &stop);

} // namespace portable
