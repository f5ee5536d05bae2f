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

        // 0 when the benchmark did not set the counter.
        double counter(const std::string& key) const {
            const auto found = counters.find(key);
            return found == counters.end() ? 0 : found->second;
        }
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
    // A counter of a benchmark ("items_per_second", ...); 0 when either is missing.
    double counter(const std::string& name, const std::string& key) const {
        const Result* result = find(name);
        return result == nullptr ? 0 : result->counter(key);
    }

private:
    std::map<std::string, Result> m_results;
    std::map<std::string, bool> m_fromMedian;
};

// "3.40x", or "n/a" when either side is missing.
std::string formatRatio(double numerator, double denominator);

// The main of every benchmark program: parses the flags, registers the benchmarks (a failure there,
// such as a missing data file, ends the program with "<program>: <reason>" and exit code 1), runs
// them through a CapturingReporter and hands it to `printRatios`.
int runBenchmarks(int argc, char** argv, const char* program, void (*registerBenchmarks)(),
                  void (*printRatios)(const CapturingReporter&));

} // namespace Zel::Bench
