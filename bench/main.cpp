#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ratios.hpp"

namespace halvtiv::bench {

std::vector<Promise>& Promises() {
    static std::vector<Promise> promises;
    return promises;
}

namespace {

double Median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// Prints the medians, and keeps every run's figures for the ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    RatioReporter() : ConsoleReporter(OO_Tabular) {}

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Aggregate && run.aggregate_name == "median") {
                ConsoleReporter::ReportRuns({run});
            }
            if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
            const std::string name = run.run_name.function_name;
            times_[name].push_back(run.cpu_accumulated_time / static_cast<double>(run.iterations));
            elapsed_[name].push_back(run.real_accumulated_time / static_cast<double>(run.iterations));
            for (const auto& [counter, value] : run.counters) counters_[{name, counter}].push_back(value);
        }
    }

    /// Whether all promises that were measured are kept.
    bool PrintRatios() const {
        bool kept = true;
        std::printf("\n%-67s %8s %8s\n", "promise", "measured", "at most");
        for (const Promise& promise : Promises()) {
            const double figure = FigureOf(promise);
            if (figure <= 0) continue;
            const bool within = figure <= promise.limit;
            kept = kept && within;
            std::printf("%-67s %8.2f %8.2f%s\n", promise.title.c_str(), figure, promise.limit,
                        within ? "" : "  MISSED");
        }
        return kept;
    }

private:
    /// The median of the ratios, run by run: what slows the machine for a while slows both. 0 without
    /// figures.
    double FigureOf(const Promise& promise) const {
        if (promise.baseline.empty()) {
            const auto found = counters_.find({promise.measured, promise.counter});
            return found == counters_.end() ? 0 : Median(found->second);
        }
        const auto& times = promise.onTheClock ? elapsed_ : times_;
        const auto measured = times.find(promise.measured);
        const auto baseline = times.find(promise.baseline);
        if (measured == times.end() || baseline == times.end()) return 0;
        std::vector<double> ratios;
        const std::size_t pairs = std::min(measured->second.size(), baseline->second.size());
        for (std::size_t pair = 0; pair < pairs; ++pair) {
            ratios.push_back(measured->second[pair] / baseline->second[pair]);
        }
        return Median(ratios);
    }

    std::map<std::string, std::vector<double>> times_;    // of the processor
    std::map<std::string, std::vector<double>> elapsed_;  // on the clock
    std::map<std::pair<std::string, std::string>, std::vector<double>> counters_;
};

}  // namespace

}  // namespace halvtiv::bench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    halvtiv::bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.PrintRatios() ? 0 : 1;
}
