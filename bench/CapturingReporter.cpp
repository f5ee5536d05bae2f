#include "CapturingReporter.h"

#include <cstdio>
#include <exception>
#include <iostream>
#include <string_view>
#include <unistd.h>

namespace Zel::Bench {

benchmark::ConsoleReporter::OutputOptions CapturingReporter::outputOptions(int argc, char** argv) {
    bool color = isatty(STDOUT_FILENO);
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--benchmark_color=true" || argument == "--benchmark_color=yes") color = true;
        if (argument == "--benchmark_color=false" || argument == "--benchmark_color=no") color = false;
    }
    return color ? OO_Defaults : OO_Tabular;
}

void CapturingReporter::ReportRuns(const std::vector<Run>& runs) {
    benchmark::ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        if (run.error_occurred) continue;
        const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        if (run.run_type == Run::RT_Aggregate && !median) continue;
        const std::string name = run.run_name.str();
        // Once a median exists, single repetitions must not overwrite it.
        if (!median && m_fromMedian[name]) continue;

        Result result;
        const double nsPerUnit = 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
        result.cpuTimeNs = run.GetAdjustedCPUTime() * nsPerUnit;
        for (const auto& [counterName, counter] : run.counters)
            result.counters[counterName] = counter.value;
        if (auto bytes = result.counters.find("bytes_per_second"); bytes != result.counters.end()) {
            result.bytesPerSecond = bytes->second;
        }
        m_results[name] = std::move(result);
        m_fromMedian[name] = median;
    }
}

const CapturingReporter::Result* CapturingReporter::find(const std::string& name) const {
    auto it = m_results.find(name);
    return it == m_results.end() ? nullptr : &it->second;
}

std::string formatRatio(double numerator, double denominator) {
    if (!(numerator > 0) || !(denominator > 0)) return "n/a";
    char text[32];
    std::snprintf(text, sizeof text, "%.2fx", numerator / denominator);
    return text;
}

int runBenchmarks(int argc, char** argv, const char* program, void (*registerBenchmarks)(),
                  void (*printRatios)(const CapturingReporter&)) {
    const auto outputOptions = CapturingReporter::outputOptions(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    try {
        registerBenchmarks();
    } catch (const std::exception& error) {
        std::cerr << program << ": " << error.what() << '\n';
        return 1;
    }
    CapturingReporter reporter(outputOptions);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printRatios(reporter);
    benchmark::Shutdown();
    return 0;
}

} // namespace Zel::Bench
