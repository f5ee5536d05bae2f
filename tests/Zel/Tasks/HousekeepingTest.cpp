#include "TestSupport.h"

#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <Zel/Tasks/Manager.h>
#include <Zel/Tasks/ManualClock.h>
#include <Zel/Variant.h>
#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace Zel::Tasks {
namespace {

using namespace std::chrono_literals;
using Testing::Gate;
using Testing::makeTask;
using Testing::StateRecorder;
using Testing::TaskSystem;
using Testing::waitUntil;

// Counts its live instances, to prove that the manager lets go of every task.
class CountedTask : public Task {
public:
    static std::atomic<int> live;

    CountedTask(const std::string& name, RunCallback&& run, FinishedCallback&& finished = nullptr)
        : Task(name, std::move(run), std::move(finished)) {
        ++live;
    }
    ~CountedTask() override { --live; }
};
std::atomic<int> CountedTask::live{0};

std::shared_ptr<Task> counted(const std::string& name, Task::RunCallback run,
                              const TaskOptions& options = {}) {
    auto task = std::make_shared<CountedTask>(name, std::move(run), [](FinishContext&) {});
    task->setOptions(options);
    return task;
}

// A manager on a clock moved by hand. settle() moves the clock and returns once everything that
// became due has been dealt with: a sentinel task due at the new time is started by its timer, which
// the engine runs after the timers due before it (the sweep among them).
class ClockedSystem {
public:
    ClockedSystem()
        : m_system(5000ms, 30000ms, m_clock), m_sentinels(m_system.manager.addQueue("sentinel", 1)) {}

    Manager& manager() { return m_system.manager; }
    Events::Manager& events() { return *m_system.events; }
    IClock::TimePoint now() const { return m_clock->now(); }

    void settle(std::chrono::milliseconds step) {
        auto reached = std::make_shared<std::promise<void>>();
        auto future = reached->get_future();
        m_sentinels->addTask(makeTask("sentinel",
                                      [reached](RunContext&) {
                                          reached->set_value();
                                          return true;
                                      }),
                             step);
        m_clock->advance(step);
        ASSERT_EQ(future.wait_for(30s), std::future_status::ready) << "nothing ran after the clock moved";
        // Finished too: a finish that came after the next move could start the next sentinel itself,
        // before the timers due earlier.
        ASSERT_TRUE(waitUntil([&] { return m_sentinels->empty(); }));
    }

private:
    std::shared_ptr<ManualClock> m_clock = std::make_shared<ManualClock>();
    TaskSystem m_system;
    std::shared_ptr<Queue> m_sentinels;
};

// Delays, back-offs and the age of finished runs all follow the manager's clock: nothing here
// waits for real time to pass.
TEST(TaskHousekeeping, DelaysRetriesAndSweepsFollowTheManagersClock) {
    ClockedSystem system;
    StateRecorder recorder(system.events());
    auto queue = system.manager().addQueue("work", 1);
    std::atomic<int> runs{0};
    std::promise<bool> finished;
    auto task = makeTask(
        "flaky",
        [&](RunContext&) {
            ++runs;
            return false;
        },
        [&](FinishContext& context) { finished.set_value(context.succeeded()); },
        TaskOptions().setRetryCount(3).setRetryMinBackoff(5000ms).setRetryMaxBackoff(30000ms).setTag(5));
    const int id = queue->addTask(task, 10s).id();

    system.settle(9999ms);
    EXPECT_EQ(runs.load(), 0);
    EXPECT_EQ(system.manager().getTaskRunInfo(id).state, TaskRun::Waiting);
    // Each retry is due its back-off after the failed run finished: 5, 10, then 20 seconds.
    int expectedRuns = 1;
    for (auto step : {1ms, 5000ms, 10000ms, 20000ms}) {
        SCOPED_TRACE(step.count());
        system.settle(step);
        ASSERT_TRUE(waitUntil([&] { return runs.load() == expectedRuns; }));
        // The clock moves on only once the retry is scheduled: its back-off counts from the failure.
        if (expectedRuns < 4) ASSERT_TRUE(waitUntil([&] { return task->retried() == expectedRuns; }));
        ++expectedRuns;
    }
    auto outcome = finished.get_future();
    ASSERT_EQ(outcome.wait_for(30s), std::future_status::ready);
    EXPECT_FALSE(outcome.get());
    EXPECT_EQ(runs.load(), 4);
    {
        const auto runList = recorder.runs(id);
        ASSERT_EQ(runList.size(), 4u);
        const std::chrono::milliseconds backoffs[] = {5000ms, 10000ms, 20000ms};
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(runList[i + 1]->runAt() - runList[i]->finished(), backoffs[i]) << i;
            EXPECT_EQ(runList[i + 1]->started(), runList[i + 1]->runAt()) << i;
        }
    }
    recorder.forgetRuns();

    // Kept for 30 seconds after the last run finished, dropped at the first sweep after that.
    system.settle(29s);
    EXPECT_TRUE(system.manager().getTaskRunInfo(id).found);
    EXPECT_EQ(Json::parse(system.manager().tasksByTagJson(5)).size(), 1u);
    std::weak_ptr<Task> watch = task;
    task.reset();
    system.settle(6s);
    EXPECT_FALSE(system.manager().getTaskRunInfo(id).found);
    EXPECT_EQ(system.manager().tasksByTagJson(5), "[]");
    EXPECT_TRUE(waitUntil([&] { return watch.expired(); })); // the run <-> task cycle was broken
}

TEST(TaskHousekeeping, ATaskStaysKnownWhileItsRetryWaitsLongerThanFinishedRunsAreKept) {
    ClockedSystem system;
    auto queue = system.manager().addQueue("work", 1);
    std::atomic<int> runs{0};
    auto task = makeTask(
        "retried", [&](RunContext&) { return ++runs > 1; }, nullptr,
        TaskOptions().setRetryCount(1).setRetryMinBackoff(60s).setRetryMaxBackoff(60s));
    const int id = queue->addTask(task).id();
    ASSERT_TRUE(waitUntil([&] { return task->retried() == 1; }));
    // Several sweeps drop the failed first run; the waiting retry keeps the task known by its id.
    system.settle(40s);
    EXPECT_EQ(system.manager().getTaskRunInfo(id).state, TaskRun::Waiting);
    system.settle(20s);
    ASSERT_TRUE(waitUntil([&] { return system.manager().getTaskRunInfo(id).state == TaskRun::Succeeded; }));
    system.settle(31s);
    EXPECT_FALSE(system.manager().getTaskRunInfo(id).found);
}

// The oldest id stays taken by a task that waits an hour while thousands of later ones run and are
// swept around it: lookups by id and by tag must still find exactly the live ones, in id order.
TEST(TaskHousekeeping, TasksAreFoundByIdAndTagAcrossSweptNeighbours) {
    TaskSystem system(2ms, 1ms);
    auto queue = system.manager.addQueue("work", 2);
    const int oldest =
        queue
            ->addTask(makeTask(
                          "oldest", [](RunContext&) { return true; }, nullptr, TaskOptions().setTag(3)),
                      1h)
            .id();
    constexpr int count = 5000;
    std::atomic<int> done{0};
    std::vector<int> kept;
    for (int i = 0; i < count; ++i) {
        // Every 1000th task waits too, so that live entries sit between the swept ones.
        const bool waits = i % 1000 == 999;
        auto task = makeTask(
            "short", [&](RunContext&) { return true; }, [&](FinishContext&) { ++done; },
            TaskOptions().setTag(i % 2 == 0 ? 3 : 4));
        const int id = queue->addTask(std::move(task), waits ? 1h : 0ms).id();
        if (waits) kept.push_back(id);
    }
    ASSERT_TRUE(waitUntil([&] { return done == count - static_cast<int>(kept.size()); }));
    ASSERT_TRUE(waitUntil([&] { return system.manager.taskCount() == kept.size() + 1; }));

    EXPECT_EQ(system.manager.getTaskRunInfo(oldest).state, TaskRun::Waiting);
    for (const int id : kept)
        EXPECT_EQ(system.manager.getTaskRunInfo(id).state, TaskRun::Waiting) << "id " << id;
    EXPECT_FALSE(system.manager.getTaskRunInfo(oldest + 1).found);
    // Kept ids are odd-numbered adds (i = 999, 1999, ...): tag 4. The oldest is the only tag 3 left.
    const Variant tagged = Json::parse(system.manager.tasksByTagJson(4));
    ASSERT_EQ(tagged.size(), kept.size());
    for (std::size_t i = 0; i < kept.size(); ++i)
        EXPECT_EQ(static_cast<int>(tagged[i]["task"]["id"]), kept[i]);
    const Variant oldestOnly = Json::parse(system.manager.tasksByTagJson(3));
    ASSERT_EQ(oldestOnly.size(), 1u);
    EXPECT_EQ(static_cast<int>(oldestOnly[0]["task"]["id"]), oldest);

    // Cancelling by id reaches a run behind the compacted entries.
    EXPECT_TRUE(system.manager.cancelTaskAsync(kept.back()));
    EXPECT_EQ(system.manager.getTaskRunInfo(kept.back()).state, TaskRun::Failed);
}

TEST(TaskHousekeeping, InfoAndTagListingDescribeTheCurrentRun) {
    TaskSystem system;
    auto queue = system.manager.addQueue("work", 1);
    Gate gate;
    std::promise<void> started;
    auto running = makeTask(
        "running",
        [&](RunContext&) {
            started.set_value();
            return gate.wait();
        },
        nullptr, TaskOptions().setTag(9));
    running->setProgress(30);
    const int runningId = queue->addTask(running).id();
    started.get_future().wait();
    const int waitingId =
        queue
            ->addTask(makeTask(
                          "waiting", [](RunContext&) { return true; }, nullptr, TaskOptions().setTag(9)),
                      1h)
            .id();
    queue->addTask(makeTask(
                       "other tag", [](RunContext&) { return true; }, nullptr, TaskOptions().setTag(8)),
                   1h);

    const TaskRunInfo info = system.manager.getTaskRunInfo(runningId);
    EXPECT_TRUE(info.found);
    EXPECT_EQ(info.taskId, runningId);
    EXPECT_EQ(info.name, "running");
    EXPECT_EQ(info.queue, "work");
    EXPECT_EQ(info.state, TaskRun::Running);
    EXPECT_GE(info.started, info.runAt - 1ms);
    EXPECT_EQ(info.finished, TaskRun::TimePoint());
    EXPECT_EQ(info.progress, 30);
    EXPECT_EQ(Json::parse(info.toJson())["name"], Variant("running"));

    const Variant all = Json::parse(system.manager.tasksByTagJson(9));
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(static_cast<int>(all[0]["task"]["id"]), runningId);
    EXPECT_EQ(static_cast<int>(all[1]["task"]["id"]), waitingId);
    const Variant waitingOnly = Json::parse(system.manager.tasksByTagJson(9, TaskRun::Waiting));
    ASSERT_EQ(waitingOnly.size(), 1u);
    EXPECT_EQ(static_cast<int>(waitingOnly[0]["task"]["id"]), waitingId);
    EXPECT_EQ(system.manager.tasksByTagJson(1), "[]");
    gate.open();
}

TEST(TaskHousekeeping, AfterStopNoTaskAndNoRunIsLeftAlive) {
    std::vector<std::weak_ptr<TaskRun>> runs;
    {
        TaskSystem system;
        StateRecorder recorder(*system.events);
        auto queue = system.manager.addQueue("work", 2);
        auto other = system.manager.addQueue("other", 1);
        Gate gate;
        std::promise<void> holding;
        std::vector<int> ids;
        ids.push_back(queue
                          ->addTask(counted("holding",
                                            [&](RunContext& context) {
                                                holding.set_value();
                                                while (!context.canceled())
                                                    std::this_thread::sleep_for(1ms);
                                                return false;
                                            }))
                          .id());
        holding.get_future().wait();
        for (int i = 0; i < 20; ++i) {
            ids.push_back(queue->addTask(counted("quick", [](RunContext&) { return true; })).id());
            ids.push_back(queue
                              ->addTask(counted(
                                  "failing", [](RunContext&) { return false; },
                                  TaskOptions().setRetryCount(2).setRetryMinBackoff(1ms)))
                              .id());
            ids.push_back(other->addTask(counted("far future", [](RunContext&) { return true; }), 1h).id());
        }
        const int canceled = queue->addTask(counted("canceled", [](RunContext&) { return true; }), 1h).id();
        ids.push_back(canceled);
        EXPECT_TRUE(system.manager.cancelTaskAsync(canceled));
        auto cleared = system.manager.addQueue("cleared", 1);
        ids.push_back(cleared->addTask(counted("cleared", [](RunContext&) { return true; }), 1h).id());
        cleared->clear();
        ASSERT_TRUE(
            waitUntil([&] { return system.manager.getTaskRunInfo(ids[2]).state == TaskRun::Failed; }));
        for (int id : ids) {
            for (const auto& run : recorder.runs(id))
                runs.push_back(run);
        }
        recorder.forgetRuns();
        EXPECT_GT(CountedTask::live.load(), 0);
        system.manager.stop();
        EXPECT_EQ(CountedTask::live.load(), 0);
        for (const auto& run : runs)
            EXPECT_TRUE(run.expired());
    }
    EXPECT_GE(runs.size(), 60u);
}

// With nobody watching state changes, undelayed adds skip the manager's lock. Here they race a
// queue's removal and the manager's stop, and still each task is let go of, while the test holds
// both queues.
TEST(TaskHousekeeping, AddsRacingRemovalAndStopLeaveNothingAlive) {
    for (int round = 0; round < 10; ++round) {
        TaskSystem system;
        auto removed = system.manager.addQueue("removed", 2);
        auto stopped = system.manager.addQueue("stopped", 1);
        std::atomic<int> added{0};
        std::atomic<int> refusals{0};
        std::thread producer([&] {
            for (const auto& queue : {removed, stopped}) {
                try {
                    for (;;) {
                        queue->addTask(counted("racing", [](RunContext&) { return true; }));
                        ++added;
                    }
                } catch (const GenericException&) {
                    ++refusals;
                }
            }
        });
        ASSERT_TRUE(waitUntil([&] { return added.load() >= 500; }));
        removed->removeAsync();
        ASSERT_TRUE(waitUntil([&] { return refusals.load() == 1; }));
        const int before = added.load();
        ASSERT_TRUE(waitUntil([&] { return added.load() >= before + 500; }));
        system.manager.stop();
        producer.join();
        EXPECT_EQ(CountedTask::live.load(), 0) << "round " << round;
    }
}

} // namespace
} // namespace Zel::Tasks
