// SPDX-License-Identifier: MIT
// Pictures of pages on desks, and of desks without one, made like photographs of them. They are
// the same for the same seed, and are generated in every run.
#pragma once

#include "bench/pagecorpus/sheet.h"

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace pagecorpus {

struct Sample
{
    cv::Mat picture; ///< 8-bit BGR
    std::vector<Corners> pages; ///< any of them may be found; none on an empty desk
};

enum class Group {
    Tuned, ///< the search was tuned by it
    HeldOut, ///< not tuned by it
    Harsh, ///< so, and harder: bad cameras, paper that is crumpled or partly hidden
};

struct Kind
{
    std::string name;
    bool hasPage;
    Group group;
};

/// All kinds of pictures; those without a page last.
std::vector<Kind> kinds();

Sample sample(const std::string &kind, int seed);

/// The largest distance of a corner from where it is, a share of the picture's diagonal.
double error(const Sample &sample, const Corners &found);

} // namespace pagecorpus
