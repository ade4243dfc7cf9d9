// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

namespace portable {

/// How long a sheet lies on the test scene while its pages are turned.
constexpr std::chrono::milliseconds sheetPeriod{3500};

/// How long the desk is empty before the next one: too short for a scan to take a shot of it.
constexpr std::chrono::milliseconds emptyPeriod{500};

/**
 * While one of these lives, somebody works at the test scene: takes the sheet away and puts the
 * next page down, again and again. For scans that wait for that. Any thread.
 */
class PageTurning
{
public:
    PageTurning();
    ~PageTurning();
    PageTurning(const PageTurning &) = delete;
    PageTurning &operator=(const PageTurning &) = delete;

    static bool isOn();
};

} // namespace portable
