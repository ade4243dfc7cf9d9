// SPDX-License-Identifier: MIT
#pragma once

#include "bench/table.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

/**
 * Compares benchmarks within one run. Machines are noisy, so the result is the ratio of two medians
 * whose repetitions were interleaved, not the time of either:
 *
 *     int main(int argc, char **argv)
 *     {
 *         RatioRun run(argc, argv);
 *         run.printRatio("log line: ours / text stream", "BM_logLine", "BM_textStream", 0.25);
 *     }
 *
 * prints, after the benchmarks, a row of the table of bench/table.h.
 */
class RatioRun
{
public:
    /// Runs every benchmark of the program; Google Benchmark's options override these defaults.
    RatioRun(int argc, char **argv)
    {
        std::vector<std::string> options{argv[0], "--benchmark_repetitions=9",
                                         "--benchmark_min_time=0.1",
                                         "--benchmark_enable_random_interleaving=true",
                                         "--benchmark_display_aggregates_only=true"};
        options.insert(options.end(), argv + 1, argv + argc);
        std::vector<char *> pointers;
        pointers.reserve(options.size());
        for (std::string &option : options) {
            pointers.push_back(&option[0]);
        }
        int count = int(pointers.size());
        benchmark::Initialize(&count, pointers.data());
        benchmark::RunSpecifiedBenchmarks(&m_reporter);
        benchmark::Shutdown();
    }

    /**
     * Prints the ratio of the medians of two benchmarks (wall-clock time if they use it, otherwise
     * CPU time), or "not measured" when one was filtered out or failed.
     * \param limit  that the ratio should keep
     */
    void printRatio(const std::string &what, const std::string &ours, const std::string &plain,
                    double limit) const
    {
        const auto our = m_reporter.medians.find(ours);
        const auto other = m_reporter.medians.find(plain);
        if (our == m_reporter.medians.end() || other == m_reporter.medians.end()) {
            std::printf("%s: not measured\n", what.c_str());
            return;
        }
        char goal[32];
        std::snprintf(goal, sizeof goal, "<= %.4g", limit);
        printRow(what, our->second * 1000, other->second * 1000, "ms", goal);
    }

private:
    /// Prints the usual table and keeps the medians, in seconds, by benchmark name.
    struct Reporter : benchmark::ConsoleReporter
    {
        std::map<std::string, double> medians;

        Reporter()
            : ConsoleReporter(OO_None) // no colors: the output goes into a table
        {
        }

        void ReportRuns(const std::vector<Run> &runs) override
        {
            for (const Run &run : runs) {
                if (run.aggregate_name == "median") {
                    medians[nameOf(run)] = secondsOf(run);
                }
            }
            ConsoleReporter::ReportRuns(runs);
        }

        /// "BM_frame/8", without the suffixes added by options.
        static std::string nameOf(const Run &run)
        {
            const std::string &arguments = run.run_name.args;
            return run.run_name.function_name + (arguments.empty() ? "" : "/" + arguments);
        }

        static double secondsOf(const Run &run)
        {
            const bool wallClock = !run.run_name.time_type.empty();
            return (wallClock ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime())
                / benchmark::GetTimeUnitMultiplier(run.time_unit);
        }
    };

    Reporter m_reporter;
};
