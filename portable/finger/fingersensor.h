// SPDX-License-Identifier: MIT
#pragma once

#include "portable/base/backgroundjob.h"

#include <QByteArray>
#include <QString>
#include <opencv2/core.hpp>

#include <functional>

namespace portable {

/// Result of a capture.
struct FingerCapture
{
    /// Why there is no finger. Pages see the numbers.
    enum Failure { NoFinger = -1, Unreadable = -2, Busy = -3, NoSensor = -4 };

    int score = NoFinger; ///< Quality of the picture, 0 to 100, or a Failure.
    QByteArray image; ///< Base64 of a PNG.
    QByteArray feature; ///< Of fingerFeature(), in hexadecimal digits.
    const char *message = ""; ///< For the user, in Chinese (UTF-8).
};

/// The result of a capture that failed.
FingerCapture failedCapture(FingerCapture::Failure failure);

/// The result of a capture that gave this picture, 8-bit grey.
FingerCapture captureOf(const cv::Mat &gray, bool isSimulated);

/// A simulated sensor: a folder of pictures, one of which is the finger on the sensor.
class FingerSensor
{
public:
    /**
     * Both functions are called repeatedly while a capture waits, on its thread.
     * \param folder  returns the folder of the pictures
     * \param finger  returns the file name of the finger on the sensor; empty: the first file by
     *                name; "none": no finger
     */
    FingerSensor(std::function<QString()> folder, std::function<QString()> finger);

    /// Waits for a finger. If none comes, the log gives the reason.
    FingerCapture capture(BackgroundJob::Clock::time_point deadline,
                          const BackgroundJob::Stop &stop) const;

private:
    QString fingerOnSensor(QString *why) const;

    const std::function<QString()> m_folder;
    const std::function<QString()> m_finger;
};

} // namespace portable
