#include "TestSupport.h"

#include <Zel/GenericException.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Tasks/ManualExecutor.h>
#include <Zel/Tasks/PeriodicExecutor.h>
#include <Zel/Tasks/RunAtExecutor.h>
#include <atomic>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <regex>
#include <string>
#include <vector>

namespace Zel::Tasks {
namespace {

using namespace std::chrono_literals;
using Testing::Gate;
using Testing::TaskSystem;
using Testing::waitUntil;
using Clock = std::chrono::steady_clock;

std::string invalidOperation(const std::function<void()>& action) {
    try {
        action();
    } catch (const InvalidOperationException& exception) {
        return exception.what();
    }
    return "(no exception)";
}

TEST(Executors, ConfigurationIsRefusedOnceStartedWithTheOperationAndFile) {
    TaskSystem system;
    system.manager.addQueue("work", 1);
    PeriodicExecutor periodic(system.manager);
    periodic.setQueue("work").setTask("tick", [](RunContext&) { return true; }).delay(1h);
    periodic.repeatAfter(1h);
    periodic.start();
    ManualExecutor manual(system.manager);
    struct Case {
        std::string function;
        std::string file;
        std::function<void()> action;
    };
    const Case cases[] = {
        {"setQueue", "Zel/Tasks/AbstractExecutor", [&] { periodic.setQueue("other"); }},
        {"setTask", "Zel/Tasks/AbstractExecutor", [&] { periodic.setTask("x", nullptr); }},
        {"delay", "Zel/Tasks/AbstractExecutor", [&] { periodic.delay(1s); }},
        {"setTaskOptions", "Zel/Tasks/AbstractExecutor", [&] { periodic.setTaskOptions(TaskOptions()); }},
        {"repeatAfter", "Zel/Tasks/PeriodicExecutor", [&] { periodic.repeatAfter(1s); }},
        {"execute", "Zel/Tasks/ManualExecutor", [&] { manual.execute(0ms); }}, // never started
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.function);
        const std::regex expected("Invalid operation \\| func=" + row.function + " \\| file=" + row.file +
                                  " \\| line=\\d+");
        const std::string message = invalidOperation(row.action);
        EXPECT_TRUE(std::regex_match(message, expected)) << message;
    }
}

TEST(Executors, StartingTwiceIsRefused) {
    TaskSystem system;
    ManualExecutor executor(system.manager);
    executor.start();
    EXPECT_EQ(executor.state(), AbstractExecutor::State::Started);
    try {
        executor.start();
        FAIL() << "second start";
    } catch (const GenericException& exception) {
        EXPECT_STREQ(exception.what(), "Abstract executor can not be started.");
    }
    executor.stop();
    EXPECT_EQ(executor.state(), AbstractExecutor::State::Configurable);
    executor.start(); // configurable again after stop
}

TEST(Executors, ManualExecutorRunsOnRequestWithTheConfiguredTask) {
    TaskSystem system;
    system.manager.addQueue("work", 2);
    ManualExecutor executor(system.manager);
    std::atomic<int> runs{0};
    std::atomic<int> finished{0};
    std::mutex namesMutex;
    std::vector<std::string> references;
    executor.setQueue("work")
        .setTask(
            "manual",
            [&](RunContext& context) {
                const auto task = system.manager.getTaskRunInfo(context.id());
                std::lock_guard lock(namesMutex);
                references.push_back(task.name);
                return ++runs > 0;
            },
            [&](FinishContext& context) {
                if (context.succeeded()) ++finished;
            })
        .setTaskOptions(TaskOptions().setTag(12));
    executor.start();
    EXPECT_EQ(executor.lastTaskId(), 0);
    for (int i = 0; i < 5; ++i)
        executor.execute(0ms);
    ASSERT_TRUE(waitUntil([&] { return finished.load() == 5; }));
    EXPECT_EQ(runs.load(), 5);
    EXPECT_EQ(references, std::vector<std::string>(5, "manual"));
    EXPECT_GT(executor.lastTaskId(), 0);
}

TEST(Executors, PeriodicExecutorCountsThePeriodFromTheEndOfEachRun) {
    TaskSystem system;
    system.manager.addQueue("work", 4);
    PeriodicExecutor executor(system.manager);
    struct Span {
        Clock::time_point start;
        Clock::time_point end;
    };
    std::mutex spansMutex;
    std::vector<Span> spans;
    std::atomic<int> finished{0};
    const auto started = Clock::now();
    executor.setQueue("work")
        .setTask(
            "periodic",
            [&](RunContext&) {
                const auto start = Clock::now();
                std::this_thread::sleep_for(15ms);
                std::lock_guard lock(spansMutex);
                spans.push_back({start, Clock::now()});
                return true;
            },
            [&](FinishContext&) { ++finished; })
        .delay(10ms);
    executor.repeatAfter(20ms);
    executor.start();
    ASSERT_TRUE(waitUntil([&] { return finished.load() >= 4; }));
    executor.stop();
    std::lock_guard lock(spansMutex);
    ASSERT_GE(spans.size(), 4u);
    EXPECT_GE(spans[0].start - started, 10ms - 1ms);
    for (std::size_t i = 1; i < spans.size(); ++i) {
        SCOPED_TRACE(i);
        // Never overlapping, and the period begins when the previous run ended.
        EXPECT_GE(spans[i].start - spans[i - 1].end, 20ms - 1ms);
    }
}

TEST(Executors, StoppingAPeriodicExecutorDuringARunLetsItFinishAndAddsNoMore) {
    TaskSystem system;
    auto queue = system.manager.addQueue("work", 1);
    PeriodicExecutor executor(system.manager);
    Gate gate;
    std::promise<void> started;
    std::atomic<int> runs{0};
    std::atomic<int> finished{0};
    executor.setQueue("work").setTask(
        "periodic",
        [&](RunContext&) {
            if (++runs == 1) started.set_value();
            gate.wait();
            return true;
        },
        [&](FinishContext&) { ++finished; });
    executor.repeatAfter(0ms);
    executor.start();
    started.get_future().wait();
    executor.stop();
    gate.open();
    ASSERT_TRUE(waitUntil([&] { return finished.load() == 1 && queue->empty(); }));
    // Had the finished run scheduled another, it would be in the queue now: the finish adds it
    // before the finished callback runs.
    EXPECT_EQ(runs.load(), 1);
    EXPECT_TRUE(queue->empty());
}

TEST(Executors, StopCancelsTheWaitingRun) {
    TaskSystem system;
    system.manager.addQueue("work", 1);
    PeriodicExecutor executor(system.manager);
    std::atomic<int> runs{0};
    std::promise<bool> finished;
    executor.setQueue("work")
        .setTask(
            "far", [&](RunContext&) { return ++runs > 0; },
            [&](FinishContext& context) { finished.set_value(context.succeeded()); })
        .delay(1h);
    executor.start();
    const int id = executor.lastTaskId();
    ASSERT_GT(id, 0);
    EXPECT_EQ(system.manager.getTaskRunInfo(id).state, TaskRun::Waiting);
    executor.stop();
    EXPECT_FALSE(finished.get_future().get());
    EXPECT_EQ(system.manager.getTaskRunInfo(id).state, TaskRun::Failed);
    EXPECT_EQ(runs.load(), 0);
}

TEST(Executors, AnEmptyRunCallbackFailsTheRunWithoutBreakingTheSeries) {
    TaskSystem system;
    system.manager.addQueue("work", 1);
    PeriodicExecutor executor(system.manager);
    std::atomic<int> failed{0};
    executor.setQueue("work").setTask("empty", nullptr, [&](FinishContext& context) {
        if (!context.succeeded()) ++failed;
    });
    executor.repeatAfter(1ms);
    executor.start();
    ASSERT_TRUE(waitUntil([&] { return failed.load() >= 3; }));
    executor.stop();
    EXPECT_TRUE(system.log->contains("Task \"empty\" threw an std::exception | queue=work | message="));
}

TEST(Executors, RunAtExecutorWaitsUntilTheNextTimeOfDay) {
    struct Case {
        Time target;
        Time now;
        std::int64_t expectedSeconds;
    };
    const Case cases[] = {
        {Time(12, 0, 0), Time(12, 0, 0), 86400}, // exactly at the time: a full day, not zero
        {Time(12, 0, 0), Time(11, 59, 59), 1},   {Time(12, 0, 0), Time(12, 0, 1), 86399},
        {Time(0, 0, 0), Time(23, 59, 59), 1},    {Time(6, 30, 15), Time(1, 0, 0), 5 * 3600 + 30 * 60 + 15},
        {Time(), Time(23, 0, 0), 3600},          // a null time counts as midnight
        {Time(25, 0, 0), Time(22, 30, 0), 5400}, // so does one out of range
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.target.toString() + " from " + row.now.toString());
        const DateTime now(Date(2024, 3, 5), row.now);
        EXPECT_EQ(RunAtExecutor::calcDelayForNextSchedule(row.target, now),
                  std::chrono::seconds(row.expectedSeconds));
    }
}

TEST(Executors, RunAtExecutorSchedulesItsFirstRunAtTheTimeOfDay) {
    TaskSystem system;
    system.manager.addQueue("work", 1);
    RunAtExecutor executor(system.manager, Time(99, 0, 0));
    EXPECT_EQ(executor.timeOfDay(), Time(0, 0, 0));
    executor.setQueue("work").setTask("nightly", [](RunContext&) { return true; });
    const auto delay = executor.calcDelayForNextSchedule();
    EXPECT_GT(delay, 0ms);
    EXPECT_LE(delay, std::chrono::hours(24));
    executor.start();
    const TaskRunInfo info = system.manager.getTaskRunInfo(executor.lastTaskId());
    EXPECT_EQ(info.state, TaskRun::Waiting);
    EXPECT_EQ(info.name, "nightly");
    // Due at midnight: at least the delay computed before start, give or take the second it counts in.
    EXPECT_GE(info.runAt - Clock::now(), delay - 2s);
}

TEST(Executors, DestroyingAStartedExecutorCancelsItsRun) {
    TaskSystem system;
    system.manager.addQueue("work", 1);
    int id = 0;
    {
        PeriodicExecutor executor(system.manager);
        executor.setQueue("work").setTask("far", [](RunContext&) { return true; }).delay(1h);
        executor.start();
        id = executor.lastTaskId();
    }
    EXPECT_EQ(system.manager.getTaskRunInfo(id).state, TaskRun::Failed);
}

} // namespace
} // namespace Zel::Tasks
