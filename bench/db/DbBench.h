#pragma once

#include "../CapturingReporter.h"

namespace Zel::Bench::Db {

// One backend's benchmarks in zel-bench-db. Each bench/db/*Bench.cpp adds its suite during static
// initialisation; the program's main registers and reports them in the order they were added.
struct Suite {
    void (*registerBenchmarks)();
    void (*printRatios)(const CapturingReporter&);
};

bool addSuite(Suite suite);

} // namespace Zel::Bench::Db
