// A console reporter that also keeps each benchmark's time per iteration, so a run can
// print the ratio of a benchmark to its peer measured in the same process.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                nanosecondsPerIteration_[run.benchmark_name()] =
                    run.GetAdjustedRealTime() * timeUnitToNanoseconds(run.time_unit);
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Prints "subject / peer = ratio" with both times; a missing one is said so.
    void printRatio(const std::string& subject, const std::string& peer, const char* meaning) {
        const auto a = nanosecondsPerIteration_.find(subject);
        const auto b = nanosecondsPerIteration_.find(peer);
        if (a == nanosecondsPerIteration_.end() || b == nanosecondsPerIteration_.end() ||
            b->second <= 0.0) {
            std::printf("ratio %s / %s: not measured in this run\n", subject.c_str(), peer.c_str());
            return;
        }
        std::printf("ratio %s / %s = %.2f (%.1f ns vs %.1f ns per iteration; %s)\n",
                    subject.c_str(), peer.c_str(), a->second / b->second, a->second, b->second,
                    meaning);
    }

    // Prints how many items per second a benchmark made, from `itemsPerIteration`.
    void printRate(const std::string& name, double itemsPerIteration, const char* items,
                   double goal) {
        const auto found = nanosecondsPerIteration_.find(name);
        if (found == nanosecondsPerIteration_.end() || found->second <= 0.0) {
            std::printf("rate %s: not measured in this run\n", name.c_str());
            return;
        }
        const double perSecond = itemsPerIteration / (found->second * 1e-9);
        if (goal > 0) {
            std::printf("rate %s = %.2f M %s/s (goal: %.0f M/s)\n", name.c_str(), perSecond / 1e6,
                        items, goal / 1e6);
        } else {
            std::printf("rate %s = %.2f %s/s\n", name.c_str(), perSecond, items);
        }
    }

private:
    static double timeUnitToNanoseconds(benchmark::TimeUnit unit) {
        switch (unit) {
            case benchmark::kSecond:
                return 1e9;
            case benchmark::kMillisecond:
                return 1e6;
            case benchmark::kMicrosecond:
                return 1e3;
            default:
                return 1.0;
        }
    }
    std::map<std::string, double> nanosecondsPerIteration_;
};
