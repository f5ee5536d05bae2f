// Acquire and release round trips on a ConnectionPool of 4 SQLite connections from 8 threads, so
// that half the threads wait at any time. Each acquire asks the connection isAlive() (one
// "SELECT 1" through the driver); the table reports round trips per second and the waits counted.

#include "DbBench.h"

#include <Zel/Db/Connection.h>
#include <Zel/Db/ConnectionPool.h>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdio>

namespace Zel::Bench::Db {
namespace {

Zel::Db::ConnectionPool& pool() {
    static Zel::Db::ConnectionPool shared(
        [] {
            return Zel::Db::Connection::create("DRIVER=SQLite3;Database=" + scratchDirectory() +
                                               "/pool-bench.db");
        },
        {.minSize = 4, .maxSize = 4});
    return shared;
}

void acquireRelease(benchmark::State& state) {
    auto& shared = pool();
    const auto waitsBefore = shared.metrics().waits;
    for (auto _ : state) {
        auto connection = shared.acquire(std::chrono::seconds(10));
        benchmark::DoNotOptimize(connection.get());
    }
    state.SetItemsProcessed(state.iterations());
    // Summed over the threads: each counts the waits while it ran, which the others overlap.
    state.counters["waits"] =
        benchmark::Counter(static_cast<double>(shared.metrics().waits - waitsBefore) / state.threads());
}

void registerBenchmarks() {
    pool();
    benchmark::RegisterBenchmark("Pool/AcquireRelease", acquireRelease)->Threads(8)->UseRealTime();
}

void printRatios(const CapturingReporter& reporter) {
    const char* name = "Pool/AcquireRelease/real_time/threads:8";
    std::printf("  8 threads on 4 connections: %.0fk round trips/s, %.0f waits\n",
                reporter.counter(name, "items_per_second") / 1e3, reporter.counter(name, "waits"));
}

const bool registered = addGroup({"ConnectionPool", registerBenchmarks, printRatios});

} // namespace
} // namespace Zel::Bench::Db
