// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <string>

/**
 * Prints a row of the table that scripts/bench.sh makes of all benchmarks:
 * "| measure | ours | yardstick | ratio | goal |". Both values are of one run.
 * \param unit  of both values, such as "ms"
 * \param goal  as text, such as "<= 1.35"
 */
inline void printRow(const std::string &measure, double ours, double yardstick, const char *unit,
                     const std::string &goal)
{
    std::printf("| %s | %.4g %s | %.4g %s | %.2f | %s |\n", measure.c_str(), ours, unit, yardstick,
                unit, ours / yardstick, goal.c_str());
}

/// A row of what has no yardstick.
inline void printRow(const std::string &measure, double ours, const char *unit,
                     const std::string &goal)
{
    std::printf("| %s | %.4g %s | | | %s |\n", measure.c_str(), ours, unit, goal.c_str());
}
