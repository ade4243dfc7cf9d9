// SPDX-License-Identifier: MIT
#pragma once

#include "base/clock.h"

#include <algorithm>
#include <array>
#include <vector>

/// How old the latest frames were when the kernel had taken them for a page. Not thread-safe.
class FrameAges
{
public:
    static constexpr std::size_t kept = 300; ///< ten seconds of a usual camera

    void add(base::Clock::Duration age) { m_ages[m_count++ % kept] = age; }

    /// The age that a share of the frames did not exceed; zero if there is none.
    base::Clock::Duration quantile(double share) const
    {
        std::vector<base::Clock::Duration> ages(
            m_ages.begin(), m_ages.begin() + std::ptrdiff_t(std::min(m_count, kept)));
        if (ages.empty()) {
            return {};
        }
        const auto at = ages.begin() + std::ptrdiff_t(share * double(ages.size() - 1));
        std::nth_element(ages.begin(), at, ages.end());
        return *at;
    }

private:
    std::array<base::Clock::Duration, kept> m_ages{};
    std::size_t m_count = 0;
};
