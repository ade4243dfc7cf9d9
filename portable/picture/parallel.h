// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

#include <algorithm>

namespace portable {

/**
 * Calls `visit` with parts of a range, from several threads. From one in builds for the thread
 * sanitizer: it doesn't see TBB's locks, so that whatever its threads hand back looks unprotected.
 */
template <class Visit> void inRanges(const cv::Range &range, Visit visit)
{
#ifdef __SANITIZE_THREAD__
    visit(range);
#else
    cv::parallel_for_(range, visit);
#endif
}

/// Calls `visit` with each number in a range, from several threads.
template <class Visit> void inParallel(const cv::Range &range, Visit visit)
{
    inRanges(range, [&visit](const cv::Range &some) {
        for (int i = some.start; i < some.end; ++i) {
            visit(i);
        }
    });
}

/// The same with some rows at a time, few enough to remain in the processor's cache.
template <class Visit> void inBands(const cv::Range &rows, Visit visit)
{
    constexpr int band = 32;
    inParallel({0, (rows.size() + band - 1) / band}, [&](int i) {
        const int start = rows.start + i * band;
        visit(cv::Range(start, std::min(start + band, rows.end)));
    });
}

} // namespace portable
