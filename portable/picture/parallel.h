// SPDX-License-Identifier: MIT
#pragma once

#include <opencv2/core.hpp>

namespace portable {

/// Calls `visit` with each number in a range, from several threads.
template <class Visit> void inParallel(const cv::Range &range, Visit visit)
{
    cv::parallel_for_(range, [&visit](const cv::Range &some) {
        for (int i = some.start; i < some.end; ++i) {
            visit(i);
        }
    });
}

} // namespace portable
