// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"

#include <algorithm>
#include <chrono>

namespace accesspolicy {

/// A bucket of tokens: so many a second on average, and a burst of four times that.
class RateLimit
{
public:
    static constexpr int burstSeconds = 4;

    /// Takes a token. \return whether there was one
    bool take(int perSecond)
    {
        const auto now = base::Clock::shared().now();
        const double most = double(perSecond) * burstSeconds;
        if (m_last == base::Clock::TimePoint{}) {
            m_tokens = most;
        } else {
            const std::chrono::duration<double> passed = now - m_last;
            m_tokens = std::min(most, m_tokens + passed.count() * perSecond);
        }
        m_last = now;
        if (m_tokens < 1) {
            return false;
        }
        m_tokens -= 1;
        return true;
    }

private:
    double m_tokens = 0;
    base::Clock::TimePoint m_last{};
};

} // namespace accesspolicy
