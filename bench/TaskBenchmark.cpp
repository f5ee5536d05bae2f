// Task throughput and start latency against POCO's TaskManager and the raw Asio thread pool. Every
// contender does the same trivial work per unit, incrementing an atomic counter:
//
//   Throughput/OneQueue     100,000 undelayed tasks through one queue of at most 2 threads (POCO: a
//                           TaskManager on a pool of 2 threads; Asio: a thread_pool of 2 threads)
//   Throughput/EightQueues  the same spread over 8 queues of 2 threads (POCO: a pool of up to 16)
//   Throughput/OneQueueFinishedCallback  Zel alone, each task with an (empty) finished callback
//   Latency                 from handing one unit over to the start of its callback, one at a time
//
// Beside each throughput figure: the threads of the process at the end of a batch and the context
// switches (voluntary and not, from getrusage) per 100,000 units: on two cores a pool with more
// threads than processors pays for them in switches.
//
// Asio's pool has no queue semantics at all (no limit per queue, no references, no retries, no
// bookkeeping): it is the floor. The ratios are printed after the table, from this one run.
//
//     zel-bench-tasks [--benchmark_min_time=0.5] [--benchmark_filter=...]
#include "CapturingReporter.h"

#include <Poco/Exception.h>
#include <Poco/Task.h>
#include <Poco/TaskManager.h>
#include <Poco/ThreadPool.h>
#include <Zel/Async/Threads/Manager.h>
#include <Zel/Tasks/Manager.h>
#include <Zel/Tasks/Queue.h>
#include <Zel/Tasks/Task.h>
#include <algorithm>
#include <atomic>
#include <benchmark/benchmark.h>
#include <boost/asio/post.hpp>
#include <boost/asio/thread_pool.hpp>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int unitsPerBatch = 100000;
constexpr int latencySamples = 3000;

// The work every contender does per unit; the last unit of a batch wakes the waiting benchmark.
class Batch {
public:
    explicit Batch(int units) : m_units(units) {}
    void unit() {
        if (m_counter.fetch_add(1, std::memory_order_relaxed) + 1 == m_units) {
            m_done.store(true, std::memory_order_release);
            m_done.notify_one();
        }
    }
    void wait() { m_done.wait(false, std::memory_order_acquire); }

private:
    const int m_units;
    std::atomic<int> m_counter{0};
    std::atomic<bool> m_done{false};
};

long contextSwitches() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_nvcsw + usage.ru_nivcsw;
}

int processThreads() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("Threads:", 0) == 0) return std::stoi(line.substr(8));
    return 0;
}

// Threads and context switches of one throughput benchmark, as counters.
class SystemCost {
public:
    void begin() { m_switchesBefore = contextSwitches(); }
    void end() {
        m_switches += contextSwitches() - m_switchesBefore;
        m_threads = std::max(m_threads, processThreads());
    }
    void report(benchmark::State& state) const {
        const double units = static_cast<double>(state.iterations()) * unitsPerBatch;
        state.counters["threads"] = m_threads;
        state.counters["switches_per_100k"] = units > 0 ? m_switches * 100000.0 / units : 0;
    }

private:
    long m_switchesBefore = 0;
    long m_switches = 0;
    int m_threads = 0;
};

// One pool for all Zel runs, as a process would have.
std::shared_ptr<Zel::Async::Threads::Manager> zelThreads() {
    static const auto threads = std::make_shared<Zel::Async::Threads::Manager>();
    return threads;
}

// --- throughput -------------------------------------------------------------------------------

void zelThroughput(benchmark::State& state, int queueCount, bool withFinishedCallback = false) {
    SystemCost cost;
    for (auto _ : state) {
        Zel::Tasks::Manager manager(zelThreads(), nullptr, nullptr);
        manager.start();
        std::vector<std::shared_ptr<Zel::Tasks::Queue>> queues;
        for (int q = 0; q < queueCount; ++q)
            queues.push_back(manager.addQueue("bench " + std::to_string(q), 2));
        Batch batch(unitsPerBatch);

        cost.begin();
        const auto start = Clock::now();
        for (int i = 0; i < unitsPerBatch; ++i) {
            auto task = std::make_shared<Zel::Tasks::Task>("unit", [&batch](Zel::Tasks::RunContext&) {
                batch.unit();
                return true;
            });
            if (withFinishedCallback) task->finishedCallback() = [](Zel::Tasks::FinishContext&) {};
            queues[i % queueCount]->addTask(std::move(task));
        }
        batch.wait();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        cost.end();
        manager.stop();
    }
    state.SetItemsProcessed(state.iterations() * unitsPerBatch);
    cost.report(state);
}

class PocoUnit : public Poco::Task {
public:
    explicit PocoUnit(Batch& batch) : Poco::Task("unit"), m_batch(batch) {}
    void runTask() override { m_batch.unit(); }

private:
    Batch& m_batch;
};

// The TaskManager refuses a task while every thread of its pool is busy; the producer retries.
void pocoStart(Poco::TaskManager& manager, Batch& batch) {
    for (;;) {
        try {
            manager.start(new PocoUnit(batch));
            return;
        } catch (const Poco::NoThreadAvailableException&) {
            std::this_thread::yield();
        }
    }
}

void pocoThroughput(benchmark::State& state, int maxThreads) {
    SystemCost cost;
    for (auto _ : state) {
        Poco::ThreadPool pool(2, maxThreads);
        Poco::TaskManager manager(pool);
        Batch batch(unitsPerBatch);
        cost.begin();
        const auto start = Clock::now();
        for (int i = 0; i < unitsPerBatch; ++i)
            pocoStart(manager, batch);
        batch.wait();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        cost.end();
        manager.joinAll();
    }
    state.SetItemsProcessed(state.iterations() * unitsPerBatch);
    cost.report(state);
}

void asioThroughput(benchmark::State& state) {
    SystemCost cost;
    for (auto _ : state) {
        boost::asio::thread_pool pool(2);
        Batch batch(unitsPerBatch);
        cost.begin();
        const auto start = Clock::now();
        for (int i = 0; i < unitsPerBatch; ++i)
            boost::asio::post(pool, [&batch] { batch.unit(); });
        batch.wait();
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        cost.end();
        pool.join();
    }
    state.SetItemsProcessed(state.iterations() * unitsPerBatch);
    cost.report(state);
}

// --- latency ----------------------------------------------------------------------------------

// Time from handing a unit over to the start of its callback, one unit at a time.
class LatencySample {
public:
    void begin() {
        m_started.store(false, std::memory_order_relaxed);
        m_begin = Clock::now();
    }
    void started() {
        m_latency = Clock::now() - m_begin;
        m_started.store(true, std::memory_order_release);
        m_started.notify_one();
    }
    Clock::duration wait() {
        m_started.wait(false, std::memory_order_acquire);
        return m_latency;
    }

private:
    Clock::time_point m_begin;
    Clock::duration m_latency{};
    std::atomic<bool> m_started{false};
};

void reportPercentiles(benchmark::State& state, std::vector<Clock::duration>& samples) {
    if (samples.empty()) return;
    std::sort(samples.begin(), samples.end());
    auto at = [&](double fraction) {
        const auto index = std::min(samples.size() - 1, static_cast<std::size_t>(fraction * samples.size()));
        return std::chrono::duration<double, std::micro>(samples[index]).count();
    };
    state.counters["p50_us"] = at(0.50);
    state.counters["p99_us"] = at(0.99);
}

template <class Idle>
void waitIdle(Idle idle) {
    while (!idle())
        std::this_thread::yield();
}

void zelLatency(benchmark::State& state) {
    Zel::Tasks::Manager manager(zelThreads(), nullptr, nullptr);
    manager.start();
    auto queue = manager.addQueue("latency", 2);
    LatencySample sample;
    std::vector<Clock::duration> samples;
    samples.reserve(latencySamples);
    for (auto _ : state) {
        auto task = std::make_shared<Zel::Tasks::Task>("probe", [&sample](Zel::Tasks::RunContext&) {
            sample.started();
            return true;
        });
        sample.begin();
        queue->addTask(std::move(task));
        samples.push_back(sample.wait());
        waitIdle([&] { return queue->empty(); });
    }
    manager.stop();
    reportPercentiles(state, samples);
}

class PocoProbe : public Poco::Task {
public:
    explicit PocoProbe(LatencySample& sample) : Poco::Task("probe"), m_sample(sample) {}
    void runTask() override { m_sample.started(); }

private:
    LatencySample& m_sample;
};

void pocoLatency(benchmark::State& state) {
    Poco::ThreadPool pool(2, 2);
    Poco::TaskManager manager(pool);
    LatencySample sample;
    std::vector<Clock::duration> samples;
    samples.reserve(latencySamples);
    for (auto _ : state) {
        sample.begin();
        manager.start(new PocoProbe(sample));
        samples.push_back(sample.wait());
        waitIdle([&] { return manager.count() == 0; });
    }
    manager.joinAll();
    reportPercentiles(state, samples);
}

void asioLatency(benchmark::State& state) {
    boost::asio::thread_pool pool(2);
    LatencySample sample;
    std::vector<Clock::duration> samples;
    samples.reserve(latencySamples);
    for (auto _ : state) {
        sample.begin();
        boost::asio::post(pool, [&sample] { sample.started(); });
        samples.push_back(sample.wait());
    }
    pool.join();
    reportPercentiles(state, samples);
}

void registerBenchmarks() {
    auto throughput = [](const char* name, auto function) {
        benchmark::RegisterBenchmark(name, function)->UseManualTime()->Unit(benchmark::kMillisecond);
    };
    throughput("Throughput/OneQueue/Zel", [](benchmark::State& state) { zelThroughput(state, 1); });
    throughput("Throughput/OneQueue/POCO", [](benchmark::State& state) { pocoThroughput(state, 2); });
    throughput("Throughput/OneQueue/AsioPool", asioThroughput);
    throughput("Throughput/EightQueues/Zel", [](benchmark::State& state) { zelThroughput(state, 8); });
    throughput("Throughput/EightQueues/POCO", [](benchmark::State& state) { pocoThroughput(state, 16); });
    // Every run's finish, with the callback, then goes through the event loop before the next run of
    // its place starts.
    throughput("Throughput/OneQueueFinishedCallback/Zel",
               [](benchmark::State& state) { zelThroughput(state, 1, true); });

    using Function = void (*)(benchmark::State&);
    const std::pair<const char*, Function> latencies[] = {
        {"Latency/Zel", zelLatency}, {"Latency/POCO", pocoLatency}, {"Latency/AsioPool", asioLatency}};
    for (const auto& [name, function] : latencies) {
        benchmark::RegisterBenchmark(name, function)
            ->Iterations(latencySamples)
            ->UseRealTime()
            ->Unit(benchmark::kMicrosecond);
    }
}

// Google Benchmark appends the run's settings to the names given above.
std::string throughputName(const std::string& name) {
    return name + "/manual_time";
}
std::string latencyName(const std::string& name) {
    return name + "/iterations:" + std::to_string(latencySamples) + "/real_time";
}

void printRatios(const Zel::Bench::CapturingReporter& reporter) {
    std::printf("\nZel against its peers (same run; ratios above 1 favour Zel):\n");
    const double asio = reporter.counter(throughputName("Throughput/OneQueue/AsioPool"), "items_per_second");
    for (const char* shape : {"OneQueue", "EightQueues"}) {
        const std::string prefix = std::string("Throughput/") + shape + "/";
        const double zel = reporter.counter(throughputName(prefix + "Zel"), "items_per_second");
        const double poco = reporter.counter(throughputName(prefix + "POCO"), "items_per_second");
        std::printf("  %-11s Zel %7.3fM tasks/s   Zel/POCO %8s   Zel/Asio pool %s (the floor)\n", shape,
                    zel / 1e6, Zel::Bench::formatRatio(zel, poco).c_str(),
                    Zel::Bench::formatRatio(zel, asio).c_str());
    }
    std::printf("  threads in the process and context switches per 100,000 tasks:\n");
    for (const char* name : {"OneQueue/Zel", "OneQueue/AsioPool", "EightQueues/Zel", "EightQueues/POCO"}) {
        const std::string full = throughputName(std::string("Throughput/") + name);
        std::printf("    %-18s threads %3.0f   switches %8.0f\n", name, reporter.counter(full, "threads"),
                    reporter.counter(full, "switches_per_100k"));
    }
    const double withCallback =
        reporter.counter(throughputName("Throughput/OneQueueFinishedCallback/Zel"), "items_per_second");
    std::printf("  OneQueue, each task with a finished callback: Zel %.3fM tasks/s\n", withCallback / 1e6);
    std::printf("  addTask -> run start latency, microseconds:\n");
    for (const char* peer : {"Zel", "POCO", "AsioPool"}) {
        const std::string name = latencyName(std::string("Latency/") + peer);
        std::printf("    %-9s p50 %7.1f   p99 %7.1f\n", peer, reporter.counter(name, "p50_us"),
                    reporter.counter(name, "p99_us"));
    }
}

} // namespace

int main(int argc, char** argv) {
    return Zel::Bench::runBenchmarks(argc, argv, "zel-bench-tasks", registerBenchmarks, printRatios);
}
