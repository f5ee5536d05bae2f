#include "TestSupport.h"

#include <Zel/GenericException.h>
#include <Zel/Tasks/Manager.h>
#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <vector>

namespace Zel::Tasks {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using Testing::Gate;
using Testing::makeTask;
using Testing::StateRecorder;
using Testing::TaskSystem;
using Testing::waitUntil;

struct FinishLog {
    std::mutex mutex;
    std::vector<bool> outcomes;
    std::vector<int> ids;
    Task::FinishedCallback callback() {
        return [this](FinishContext& context) {
            std::lock_guard lock(mutex);
            outcomes.push_back(context.succeeded());
            ids.push_back(context.taskId());
        };
    }
    std::size_t size() {
        std::lock_guard lock(mutex);
        return outcomes.size();
    }
};

TEST(TaskRetry, RetriesAfterDoublingBackoffsThenFailsOnce) {
    TaskSystem system;
    StateRecorder recorder(*system.events);
    system.manager.addQueue("work", 1);
    FinishLog finish;
    std::atomic<int> runs{0};
    auto task = makeTask(
        "flaky",
        [&](RunContext& context) {
            ++runs;
            context.id();
            return false;
        },
        finish.callback(), TaskOptions().setRetryCount(3).setRetryMinBackoff(20ms).setRetryMaxBackoff(50ms));
    const int id = system.manager.addTask(task, "work", 0ms).id();
    ASSERT_TRUE(waitUntil([&] { return finish.size() == 1; }));
    EXPECT_EQ(runs.load(), 4);
    EXPECT_EQ(task->retried(), 3);
    EXPECT_THAT(finish.outcomes, ElementsAre(false));
    EXPECT_THAT(finish.ids, ElementsAre(id));
    const auto runList = recorder.runs(id);
    ASSERT_EQ(runList.size(), 4u);
    ASSERT_TRUE(waitUntil([&] { return runList[3]->state() == TaskRun::Failed; }));
    // Each retry is due its back-off after the failed run finished: 20, 40, then 80 capped at 50.
    const std::chrono::milliseconds backoffs[] = {20ms, 40ms, 50ms};
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(runList[i + 1]->runAt() - runList[i]->finished(), backoffs[i]);
        EXPECT_GE(runList[i + 1]->started(), runList[i + 1]->runAt() - 1ms);
        EXPECT_THAT(recorder.states(runList[i]),
                    ElementsAre(TaskRun::Waiting, TaskRun::Running, TaskRun::Failed));
    }
    EXPECT_EQ(runList.back()->task(), task);
}

TEST(TaskRetry, ASucceedingRetryEndsTheSeriesAndResetsProgress) {
    TaskSystem system;
    system.manager.addQueue("work", 1);
    FinishLog finish;
    std::atomic<int> runs{0};
    std::vector<int> progressSeen;
    std::shared_ptr<Task> task;
    task = makeTask(
        "second time lucky",
        [&](RunContext&) {
            progressSeen.push_back(task->progress());
            task->setProgress(50);
            return ++runs == 2;
        },
        finish.callback(), TaskOptions().retryIndefinitely().setRetryMinBackoff(1ms));
    system.manager.addTask(task, "work", 0ms);
    ASSERT_TRUE(waitUntil([&] { return finish.size() == 1; }));
    EXPECT_THAT(finish.outcomes, ElementsAre(true));
    EXPECT_EQ(runs.load(), 2);
    EXPECT_THAT(progressSeen, ElementsAre(0, 0));
}

TEST(TaskRetry, ARetryIsDroppedWhileAnotherTaskWithTheReferenceWaits) {
    TaskSystem system;
    auto queue = system.manager.addQueue("work", 1);
    Gate gate;
    std::promise<void> started;
    FinishLog finish;
    const TaskOptions options = TaskOptions().setReference("sync").setRetryCount(5).setRetryMinBackoff(1ms);
    auto failing = makeTask(
        "failing",
        [&](RunContext&) {
            started.set_value();
            gate.wait();
            return false;
        },
        finish.callback(), options);
    std::atomic<int> standInRuns{0};
    auto standIn = makeTask(
        "stand-in", [&](RunContext&) { return ++standInRuns > 0; }, finish.callback(), options);
    queue->addTask(failing);
    started.get_future().wait();
    EXPECT_FALSE(queue->addTask(standIn).existingTask()); // uniqueness 1: the running one does not count
    gate.open();
    ASSERT_TRUE(waitUntil([&] { return finish.size() == 2; }));
    EXPECT_EQ(failing->retried(), 0);
    EXPECT_EQ(standInRuns.load(), 1);
    EXPECT_THAT(finish.outcomes, ElementsAre(false, true));
}

TEST(TaskCancel, AWaitingRunFailsAtOnceAndItsFinishedCallbackRunsBeforeCancelReturns) {
    TaskSystem system;
    StateRecorder recorder(*system.events);
    system.manager.addQueue("work", 1);
    FinishLog finish;
    std::atomic<bool> ran{false};
    auto task = makeTask(
        "later", [&](RunContext&) { return ran = true; }, finish.callback(),
        TaskOptions().setReference("later"));
    const int id = system.manager.addTask(task, "work", 1h).id();
    EXPECT_TRUE(system.manager.cancelTaskAsync(id));
    EXPECT_THAT(finish.outcomes, ElementsAre(false));
    EXPECT_THAT(recorder.states(recorder.runs(id).at(0)), ElementsAre(TaskRun::Waiting, TaskRun::Failed));
    EXPECT_TRUE(system.manager.cancelTaskAsync(id)); // already over
    EXPECT_EQ(finish.size(), 1u);
    EXPECT_FALSE(ran);
    EXPECT_FALSE(task->runCallback()); // released as soon as the task was over
    // Its reference is free again.
    EXPECT_FALSE(system.manager
                     .addTask(makeTask(
                                  "again", [](RunContext&) { return true; }, nullptr,
                                  TaskOptions().setReference("later")),
                              "work", 1h)
                     .existingTask());
}

// Behind a run that holds the queue's only place, plain adds wait in the queue's intake, which no
// worker empties until the place is free: the task itself, a lookup by id and a cancel by id each
// find their run there all the same.
TEST(TaskCancel, RunsAddedWithoutTheLockAreFoundAndCanceledBeforeTheyStart) {
    TaskSystem system;
    auto queue = system.manager.addQueue("work", 1);
    Gate gate;
    std::promise<void> holding;
    queue->addTask(makeTask("holder", [&](RunContext&) {
        holding.set_value();
        return gate.wait();
    }));
    holding.get_future().wait();
    FinishLog finish;
    auto waiting = [&] {
        return makeTask(
            "waiting", [](RunContext&) { return true; }, finish.callback());
    };

    const auto first = waiting();
    queue->addTask(first);
    ASSERT_NE(first->currentRun(), nullptr);
    EXPECT_EQ(first->currentRun()->state(), TaskRun::Waiting);
    const int second = queue->addTask(waiting()).id();
    EXPECT_EQ(system.manager.getTaskRunInfo(second).state, TaskRun::Waiting);
    const int third = queue->addTask(waiting()).id();
    EXPECT_TRUE(system.manager.cancelTaskAsync(third));
    EXPECT_THAT(finish.ids, ElementsAre(third));

    gate.open();
    ASSERT_TRUE(waitUntil([&] { return finish.size() == 3; }));
    EXPECT_THAT(finish.outcomes, ElementsAre(false, true, true));
}

TEST(TaskCancel, ARunningRunIsAskedToStopAndIsNotRetried) {
    TaskSystem system;
    StateRecorder recorder(*system.events);
    system.manager.addQueue("work", 1);
    FinishLog finish;
    std::promise<void> started;
    std::atomic<int> runs{0};
    auto task = makeTask(
        "cooperative",
        [&](RunContext& context) {
            ++runs;
            started.set_value();
            while (!context.canceled())
                std::this_thread::sleep_for(1ms);
            return false;
        },
        finish.callback(), TaskOptions().setRetryCount(3).setRetryMinBackoff(1ms));
    const int id = system.manager.addTask(task, "work", 0ms).id();
    started.get_future().wait();
    EXPECT_FALSE(system.manager.cancelTaskAsync(id));
    system.manager.cancelTask(id); // returns once the run left the running list
    ASSERT_TRUE(waitUntil([&] { return finish.size() == 1; }));
    EXPECT_THAT(finish.outcomes, ElementsAre(false));
    EXPECT_EQ(runs.load(), 1);
    EXPECT_EQ(task->retried(), 0);
    const auto run = recorder.runs(id).at(0);
    ASSERT_TRUE(waitUntil([&] { return run->state() == TaskRun::Failed; }));
    EXPECT_THAT(recorder.states(run),
                ElementsAre(TaskRun::Waiting, TaskRun::Running, TaskRun::Canceling, TaskRun::Failed));
}

TEST(TaskCancel, ACanceledRunThatSucceedsAnywayCountsAsSucceeded) {
    TaskSystem system;
    system.manager.addQueue("work", 1);
    FinishLog finish;
    std::promise<void> started;
    Gate gate;
    auto task = makeTask(
        "stubborn",
        [&](RunContext&) {
            started.set_value();
            return gate.wait();
        },
        finish.callback());
    const int id = system.manager.addTask(task, "work", 0ms).id();
    started.get_future().wait();
    EXPECT_FALSE(system.manager.cancelTaskAsync(id));
    EXPECT_FALSE(system.manager.cancelTaskAsync(id)); // still canceling
    gate.open();
    system.manager.cancelTask(id);
    ASSERT_TRUE(waitUntil([&] { return finish.size() == 1; }));
    EXPECT_THAT(finish.outcomes, ElementsAre(true));
}

TEST(TaskCancel, CancelingATaskOfAnotherQueueIsRefusedWithItsText) {
    TaskSystem system;
    auto first = system.manager.addQueue("first", 1);
    auto second = system.manager.addQueue("second", 1);
    auto task = makeTask("elsewhere", [](RunContext&) { return true; });
    const int id = first->addTask(task, 1h).id();
    auto notAdded = makeTask("never added", [](RunContext&) { return true; });
    struct Case {
        std::shared_ptr<Queue> queue;
        std::shared_ptr<Task> task;
        std::string message;
    };
    const Case cases[] = {
        {second, task,
         "Cannot cancel the task because it's not in the queue. | queue=second | taskId=" +
             std::to_string(id)},
        {first, notAdded, "Cannot cancel the task because it's not in the queue. | queue=first | taskId=0"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.message);
        try {
            row.queue->cancelTaskAsync(row.task);
            ADD_FAILURE() << "no exception";
        } catch (const GenericException& exception) {
            EXPECT_EQ(exception.message(), row.message);
        }
    }
    EXPECT_TRUE(first->cancelTaskAsync(task));
    EXPECT_TRUE(system.manager.cancelTaskAsync(987654)); // unknown ids have nothing left to cancel
}

} // namespace
} // namespace Zel::Tasks
