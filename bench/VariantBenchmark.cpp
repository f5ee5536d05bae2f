// Costs that Variant promises in shape rather than in nanoseconds: a copy is one reference-count
// increment whatever the size of the value, scalars never touch the heap, and building a large map
// with random keys grows like a balanced tree, not quadratically. Each claim is measured next to a
// reference in the same run and summed up as ratios at the end.

#include "AllocationCounter.h"
#include "CapturingReporter.h"

#include <Zel/Variant.h>
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace {

using Zel::Variant;

constexpr int bigMapSize = 10'000;
constexpr int smallInsertCount = 10'000;
constexpr int insertCount = 100'000;

// Allocations made inside the timed loop, per iteration. Read around the loop only: setting up
// the benchmark may allocate freely.
class AllocationProbe {
public:
    explicit AllocationProbe(benchmark::State& state) : m_state(state) {}
    void start() { m_before = Zel::Bench::allocationCount(); }
    void stop() {
        const std::size_t made = Zel::Bench::allocationCount() - m_before;
        m_state.counters["allocs_per_iter"] =
            benchmark::Counter(static_cast<double>(made), benchmark::Counter::kAvgIterations);
    }

private:
    benchmark::State& m_state;
    std::size_t m_before = 0;
};

Variant mapOfSize(int size) {
    Variant map = Variant::makeMap();
    for (int i = 0; i < size; ++i)
        map.setAt("key" + std::to_string(i), Variant(i));
    return map;
}

// Twelve random letters and digits: short enough for the small-string buffer, so both maps pay the
// same (nothing) for copying a key, and random enough to land anywhere in the key order.
std::vector<std::string> randomKeys(int count, unsigned seed) {
    static constexpr char alphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> pick(0, sizeof alphabet - 2);
    std::vector<std::string> keys(count);
    for (std::string& key : keys) {
        key.resize(12);
        for (char& c : key)
            c = alphabet[pick(random)];
    }
    return keys;
}

const std::vector<std::string>& keysFor(int count) {
    static const std::vector<std::string> small = randomKeys(smallInsertCount, 1);
    static const std::vector<std::string> large = randomKeys(insertCount, 2);
    return count == smallInsertCount ? small : large;
}

// --- copies -------------------------------------------------------------------------------------

void copyZelMap(benchmark::State& state, int size) {
    const Variant source = mapOfSize(size);
    AllocationProbe probe(state);
    probe.start();
    for (auto _ : state) {
        Variant copy(source);
        benchmark::DoNotOptimize(copy);
    }
    probe.stop();
}

void copyStdMap(benchmark::State& state, int size) {
    std::map<std::string, Variant> source;
    for (int i = 0; i < size; ++i)
        source.emplace("key" + std::to_string(i), Variant(i));
    for (auto _ : state) {
        std::map<std::string, Variant> copy(source);
        benchmark::DoNotOptimize(copy);
    }
}

// --- scalars ------------------------------------------------------------------------------------

template <class T>
void assignScalar(benchmark::State& state, T value) {
    Variant target;
    AllocationProbe probe(state);
    probe.start();
    for (auto _ : state) {
        benchmark::DoNotOptimize(value);
        target = value;
        benchmark::DoNotOptimize(target);
    }
    probe.stop();
}

template <class T>
void copyScalar(benchmark::State& state, T value) {
    const Variant source(value);
    Variant assigned;
    AllocationProbe probe(state);
    probe.start();
    for (auto _ : state) {
        Variant constructed(source);
        benchmark::DoNotOptimize(constructed);
        assigned = source;
        benchmark::DoNotOptimize(assigned);
    }
    probe.stop();
}

// --- building and reading large maps ------------------------------------------------------------

void setAtZel(benchmark::State& state, int count) {
    const std::vector<std::string>& keys = keysFor(count);
    AllocationProbe probe(state);
    probe.start();
    for (auto _ : state) {
        Variant map = Variant::makeMap();
        for (int i = 0; i < count; ++i)
            map.setAt(keys[i], Variant(i));
        benchmark::DoNotOptimize(map);
    }
    probe.stop();
    state.SetItemsProcessed(state.iterations() * count);
}

void insertStdMap(benchmark::State& state, int count) {
    const std::vector<std::string>& keys = keysFor(count);
    AllocationProbe probe(state);
    probe.start();
    for (auto _ : state) {
        std::map<std::string, Variant> map;
        for (int i = 0; i < count; ++i)
            map.insert_or_assign(keys[i], Variant(i));
        benchmark::DoNotOptimize(map);
    }
    probe.stop();
    state.SetItemsProcessed(state.iterations() * count);
}

// Looks the keys up in another order than they were inserted in, so neither map gets a warm path.
std::vector<std::string> shuffledKeys(int count) {
    std::vector<std::string> keys = keysFor(count);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(3));
    return keys;
}

void lookupZel(benchmark::State& state, int count) {
    Variant map = Variant::makeMap();
    for (int i = 0; i < count; ++i)
        map.setAt(keysFor(count)[i], Variant(i));
    const Variant& lookedUp = map;
    const std::vector<std::string> keys = shuffledKeys(count);
    for (auto _ : state) {
        std::int64_t sum = 0;
        for (const std::string& key : keys)
            sum += static_cast<int>(lookedUp[key]);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void lookupStdMap(benchmark::State& state, int count) {
    std::map<std::string, Variant> map;
    for (int i = 0; i < count; ++i)
        map.insert_or_assign(keysFor(count)[i], Variant(i));
    const std::vector<std::string> keys = shuffledKeys(count);
    for (auto _ : state) {
        std::int64_t sum = 0;
        for (const std::string& key : keys)
            sum += static_cast<int>(map.find(key)->second);
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * count);
}

void registerBenchmarks() {
    const std::string big = std::to_string(bigMapSize);
    const std::string inserts = std::to_string(insertCount);

    benchmark::RegisterBenchmark(("Copy/Map" + big + "/Zel").c_str(), copyZelMap, bigMapSize);
    benchmark::RegisterBenchmark("Copy/Map1/Zel", copyZelMap, 1);
    benchmark::RegisterBenchmark(("Copy/Map" + big + "/std::map").c_str(), copyStdMap, bigMapSize)
        ->Unit(benchmark::kMicrosecond);

    benchmark::RegisterBenchmark("Assign/int/Zel", assignScalar<int>, 42);
    benchmark::RegisterBenchmark("Assign/double/Zel", assignScalar<double>, 2.5);
    benchmark::RegisterBenchmark("Assign/bool/Zel", assignScalar<bool>, true);
    benchmark::RegisterBenchmark("CopyScalar/int/Zel", copyScalar<int>, 42);
    benchmark::RegisterBenchmark("CopyScalar/double/Zel", copyScalar<double>, 2.5);
    benchmark::RegisterBenchmark("CopyScalar/bool/Zel", copyScalar<bool>, true);

    for (int count : {smallInsertCount, insertCount}) {
        const std::string n = std::to_string(count);
        benchmark::RegisterBenchmark(("SetAt/" + n + "/Zel").c_str(), setAtZel, count)
            ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark(("SetAt/" + n + "/std::map").c_str(), insertStdMap, count)
            ->Unit(benchmark::kMillisecond);
    }
    benchmark::RegisterBenchmark(("Lookup/" + inserts + "/Zel").c_str(), lookupZel, insertCount)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("Lookup/" + inserts + "/std::map").c_str(), lookupStdMap, insertCount)
        ->Unit(benchmark::kMillisecond);
}

void printLine(const char* format, auto... arguments) {
    char line[200];
    std::snprintf(line, sizeof line, format, arguments...);
    std::cout << line << '\n';
}

void printRatios(const Zel::Bench::CapturingReporter& reporter) {
    using Zel::Bench::formatRatio;
    const std::string big = std::to_string(bigMapSize);
    const std::string inserts = std::to_string(insertCount);
    const std::string smallInserts = std::to_string(smallInsertCount);
    auto time = [&](const std::string& name) {
        const auto* result = reporter.find(name);
        return result ? result->cpuTimeNs : 0.0;
    };

    std::cout << "\nRatios (same run):\n";
    const double copyBig = time("Copy/Map" + big + "/Zel");
    const double copyOne = time("Copy/Map1/Zel");
    printLine(
        "copy: Map%s / Map1 time                  = %s  (%.2f vs %.2f ns; 1.00x means size-independent)",
        big.c_str(), formatRatio(copyBig, copyOne).c_str(), copyBig, copyOne);
    const double copyStd = time("Copy/Map" + big + "/std::map");
    printLine("copy: std::map deep copy / Zel copy (%s) = %s", big.c_str(),
              formatRatio(copyStd, copyBig).c_str());

    const std::vector<std::string> allocationFree = {
        "Copy/Map" + big + "/Zel", "Copy/Map1/Zel",      "Assign/int/Zel",        "Assign/double/Zel",
        "Assign/bool/Zel",         "CopyScalar/int/Zel", "CopyScalar/double/Zel", "CopyScalar/bool/Zel"};
    for (const std::string& name : allocationFree) {
        const auto* result = reporter.find(name);
        if (!result) continue;
        const double allocations = result->counters.at("allocs_per_iter");
        printLine("allocations per iteration, %-22s = %g  %s", name.c_str(), allocations,
                  allocations == 0 ? "(ok)" : "(EXPECTED 0)");
    }

    for (const std::string& n : {smallInserts, inserts}) {
        const double zel = time("SetAt/" + n + "/Zel");
        const double stdMap = time("SetAt/" + n + "/std::map");
        printLine("setAt %6s random keys: Zel/std::map speed = %s  (%.2f vs %.2f ms)", n.c_str(),
                  formatRatio(stdMap, zel).c_str(), zel / 1e6, stdMap / 1e6);
    }
    // Per-insert cost growing by log(n) is expected; a quadratic map would grow with n (10x here).
    const double perInsertZel = time("SetAt/" + inserts + "/Zel") / insertCount;
    const double perInsertZelSmall = time("SetAt/" + smallInserts + "/Zel") / smallInsertCount;
    const double perInsertStd = time("SetAt/" + inserts + "/std::map") / insertCount;
    const double perInsertStdSmall = time("SetAt/" + smallInserts + "/std::map") / smallInsertCount;
    printLine(
        "setAt growth: per-insert time at %s / at %s: Zel = %s, std::map = %s (quadratic would be ~%dx)",
        inserts.c_str(), smallInserts.c_str(), formatRatio(perInsertZel, perInsertZelSmall).c_str(),
        formatRatio(perInsertStd, perInsertStdSmall).c_str(), insertCount / smallInsertCount);

    const double lookupZel = time("Lookup/" + inserts + "/Zel");
    const double lookupStd = time("Lookup/" + inserts + "/std::map");
    printLine("lookup %s keys with operator[]: Zel/std::map speed = %s  (%.2f vs %.2f ms)", inserts.c_str(),
              formatRatio(lookupStd, lookupZel).c_str(), lookupZel / 1e6, lookupStd / 1e6);
}

} // namespace

int main(int argc, char** argv) {
    return Zel::Bench::runBenchmarks(argc, argv, "zel-bench-variant", registerBenchmarks, printRatios);
}
