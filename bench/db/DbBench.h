#pragma once

#include "../CapturingReporter.h"

#include <string>

namespace Zel::Bench::Db {

// One group of benchmarks of zel-bench-db. Each source file of the program adds its group with a
// static `const bool registered = addGroup({...})`, so that a backend's benchmarks come and go with
// its file in the CMake list.
struct Group {
    const char* name;
    void (*registerBenchmarks)();
    void (*printRatios)(const CapturingReporter&);
};

bool addGroup(Group group);

// A fresh temporary directory, removed when the program ends.
const std::string& scratchDirectory();

} // namespace Zel::Bench::Db
