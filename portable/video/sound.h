// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"

#include <QtGlobal>

#include <vector>

namespace portable {

constexpr int soundRate = 48000; ///< Samples per second of all sound; one channel.

using Samples = std::vector<qint16>;

/// Consecutive samples of a microphone.
struct Sound
{
    base::Clock::TimePoint capturedAt; ///< Of the first sample, by the clock of the computer.
    Samples samples; ///< At about soundRate: by the clock of the microphone.
};

/// How long that many samples take.
constexpr base::Clock::Duration soundLength(qint64 samples)
{
    return std::chrono::duration_cast<base::Clock::Duration>(
        std::chrono::nanoseconds(samples * 1000000000 / soundRate));
}

/// The number of samples in a time, which may be negative.
constexpr qint64 samplesIn(base::Clock::Duration time)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time).count() / 1000 * soundRate
        / 1000000;
}

} // namespace portable
