// SPDX-License-Identifier: MIT
#pragma once

#include "portable/base/backgroundjob.h"

#include <QByteArray>
#include <QString>

#include <functional>

namespace portable {

/// What a capture gives.
struct FingerCapture
{
    /// Below 0 there is no finger; the numbers are what pages get.
    enum Failure { noFinger = -1, unreadable = -2, busy = -3 };

    int score = noFinger; ///< Quality of the picture, 0 to 100, or a Failure.
    QByteArray image; ///< Base64 of a PNG.
    QByteArray feature; ///< Of fingerFeature(), as hexadecimal digits.
    const char *message = ""; ///< For people, UTF-8.
};

/// What a capture without a finger gives.
FingerCapture failedCapture(FingerCapture::Failure failure);

/// A simulated sensor: a folder of pictures, one of which is the finger that lies on it.
class FingerSensor
{
public:
    /**
     * Both are asked again and again while a capture waits.
     * \param folder  where the pictures are
     * \param finger  name of the one on the sensor; empty: the first; "none": no finger
     */
    FingerSensor(std::function<QString()> folder, std::function<QString()> finger);

    /// Waits for a finger. Why none came stands in the log.
    FingerCapture capture(BackgroundJob::Clock::time_point deadline,
                          const BackgroundJob::Stop &stop) const;

private:
    QString fingerOnSensor(QString *why) const;

    const std::function<QString()> m_folder;
    const std::function<QString()> m_finger;
};

} // namespace portable
