// zel-bench-db: data access through Zel::Db against the same work written by hand over each
// engine's own client API, in one run. Ratios are printed after the table.
//
//     zel-bench-db [--benchmark_min_time=0.5] [--benchmark_filter=Firebird]
#include "DbBench.h"

#include <vector>

namespace Zel::Bench::Db {
namespace {

std::vector<Suite>& suites() {
    static std::vector<Suite> all;
    return all;
}

void registerAll() {
    for (const Suite& suite : suites())
        suite.registerBenchmarks();
}

void printAll(const CapturingReporter& reporter) {
    for (const Suite& suite : suites())
        suite.printRatios(reporter);
}

} // namespace

bool addSuite(Suite suite) {
    suites().push_back(suite);
    return true;
}

} // namespace Zel::Bench::Db

int main(int argc, char** argv) {
    return Zel::Bench::runBenchmarks(argc, argv, "zel-bench-db", Zel::Bench::Db::registerAll,
                                     Zel::Bench::Db::printAll);
}
