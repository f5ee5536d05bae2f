#pragma once

#include <benchmark/benchmark.h>
#include <map>
#include <string>
#include <vector>

namespace Zel::Bench {

// Prints like the console reporter and keeps each benchmark's figures, so that a program can
// compare benchmarks of the same run after RunSpecifiedBenchmarks returns. Ratios taken from one
// process share its machine load, which separate runs on a shared machine would not.
class CapturingReporter : public benchmark::ConsoleReporter {
public:
    struct Result {
        double cpuTimeNs = 0;      // per iteration
        double bytesPerSecond = 0; // 0 unless the benchmark set bytes processed
        std::map<std::string, double> counters;
    };

    // The console reporter that Google Benchmark builds for itself follows --benchmark_color and
    // whether stdout is a terminal; a reporter passed in does not, so this works it out the same
    // way. Call it before benchmark::Initialize, which removes the flags it knows from argv.
    static OutputOptions outputOptions(int argc, char** argv);

    explicit CapturingReporter(OutputOptions options) : benchmark::ConsoleReporter(options) {}

    void ReportRuns(const std::vector<Run>& runs) override;

    // Null when the benchmark did not run (filtered out or failed). With --benchmark_repetitions
    // the median stands for the benchmark.
    const Result* find(const std::string& name) const;

private:
    std::map<std::string, Result> m_results;
    std::map<std::string, bool> m_fromMedian;
};

// "3.40x", or "n/a" when either side is missing.
std::string formatRatio(double numerator, double denominator);

} // namespace Zel::Bench
