#include "TestSupport.h"

#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <Zel/Log/ThreadContext.h>
#include <Zel/Tasks/Queue.h>
#include <atomic>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <stdexcept>
#include <string>
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
using Clock = std::chrono::steady_clock;

// A task that holds its queue's only thread until the gate opens, so that what is added after it waits.
std::shared_ptr<Task> blocker(Gate& gate, std::promise<void>* started = nullptr) {
    return makeTask("blocker", [&gate, started](RunContext&) {
        if (started) started->set_value();
        return gate.wait();
    });
}

// Collects what callbacks of several threads report, in arrival order.
class Journal {
public:
    void add(std::string entry) {
        std::lock_guard lock(m_mutex);
        m_entries.push_back(std::move(entry));
    }
    std::vector<std::string> entries() const {
        std::lock_guard lock(m_mutex);
        return m_entries;
    }
    std::size_t size() const {
        std::lock_guard lock(m_mutex);
        return m_entries.size();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_entries;
};

TEST(TaskQueue, ASecondTaskWithAWaitingReferenceReturnsTheFirstsId) {
    TaskSystem system;
    auto queue = system.manager.addQueue("work", 1);
    Gate gate;
    queue->addTask(blocker(gate));
    std::atomic<int> firstRuns{0};
    std::atomic<int> secondCalls{0};
    auto first = makeTask(
        "first", [&](RunContext&) { return ++firstRuns > 0; }, nullptr,
        TaskOptions().setReference("invoice:7"));
    auto second = makeTask(
        "second", [&](RunContext&) { return ++secondCalls > 0; }, [&](FinishContext&) { ++secondCalls; },
        TaskOptions().setReference("invoice:7"));
    const TaskAddResult added = queue->addTask(first);
    const TaskAddResult merged = queue->addTask(second);
    EXPECT_FALSE(added.existingTask());
    EXPECT_EQ(merged, TaskAddResult(added.id(), true));
    EXPECT_EQ(second->id(), 0);
    EXPECT_EQ(second->addCount(), 0);
    gate.open();
    ASSERT_TRUE(waitUntil([&] { return queue->empty(); }));
    EXPECT_EQ(firstRuns.load(), 1);
    EXPECT_EQ(secondCalls.load(), 0);
}

TEST(TaskQueue, UniquenessDecidesWhetherARunningReferenceRefusesANewTask) {
    for (Uniqueness uniqueness : {Uniqueness::Waiting, Uniqueness::WaitingOrRunning}) {
        SCOPED_TRACE(static_cast<int>(uniqueness));
        TaskSystem system;
        auto queue = system.manager.addQueue("work", 4); // room enough: only the reference holds it back
        Gate gate;
        std::promise<void> started;
        Journal journal;
        const TaskOptions options = TaskOptions().setReference("report").setUniqueness(uniqueness);
        auto first = makeTask(
            "first",
            [&](RunContext&) {
                journal.add("first start");
                started.set_value();
                const bool opened = gate.wait();
                journal.add("first end");
                return opened;
            },
            nullptr, options);
        auto second = makeTask(
            "second",
            [&](RunContext&) {
                journal.add("second start");
                return true;
            },
            nullptr, options);
        const int firstId = queue->addTask(first).id();
        started.get_future().wait();
        const TaskAddResult result = queue->addTask(second);
        if (uniqueness == Uniqueness::WaitingOrRunning) {
            EXPECT_EQ(result, TaskAddResult(firstId, true));
        } else {
            EXPECT_FALSE(result.existingTask());
            EXPECT_NE(result.id(), firstId);
        }
        gate.open();
        ASSERT_TRUE(waitUntil([&] { return queue->empty(); }));
        if (uniqueness == Uniqueness::WaitingOrRunning) {
            EXPECT_THAT(journal.entries(), ElementsAre("first start", "first end"));
        } else {
            // Accepted, but it waited for the running one instead of overlapping it.
            EXPECT_THAT(journal.entries(), ElementsAre("first start", "first end", "second start"));
        }
    }
}

TEST(TaskQueue, StartsRunsInAddingOrderAndDelayedOnesByTheirTime) {
    TaskSystem system;
    auto queue = system.manager.addQueue("work", 1);
    Gate gate;
    std::promise<void> blocked;
    queue->addTask(blocker(gate, &blocked));
    blocked.get_future().wait();
    Journal journal;
    auto add = [&](const std::string& name, std::chrono::milliseconds delay,
                   const std::string& reference = {}) {
        auto task = makeTask(name, [&journal, name](RunContext&) {
            journal.add(name);
            return true;
        });
        task->setReference(reference);
        queue->addTask(std::move(task), delay);
    };
    add("late", 200ms);
    // Adds with a reference are looked up under the lock, the others skip it: one order all the same.
    for (int i = 0; i < 10; ++i)
        add("now " + std::to_string(i), 0ms, i % 3 == 1 ? "reference " + std::to_string(i) : "");
    add("soon", 100ms);
    gate.open();
    ASSERT_TRUE(waitUntil([&] { return journal.size() == 12; }));
    EXPECT_THAT(journal.entries(), ElementsAre("now 0", "now 1", "now 2", "now 3", "now 4", "now 5", "now 6",
                                               "now 7", "now 8", "now 9", "soon", "late"));
}

TEST(TaskQueue, AFinishedCallbackEndsBeforeTheNextRunOfASingleThreadQueueStarts) {
    TaskSystem system;
    auto queue = system.manager.addQueue("serial", 1);
    Gate gate;
    std::promise<void> blocked;
    queue->addTask(blocker(gate, &blocked));
    blocked.get_future().wait();
    Journal journal;
    for (const char* name : {"a", "b", "c"}) {
        const bool withCallback = std::string(name) != "b";
        queue->addTask(makeTask(
            name,
            [&journal, name](RunContext&) {
                journal.add(std::string(name) + " run");
                return true;
            },
            withCallback ? Task::FinishedCallback([&journal, name](FinishContext&) {
                std::this_thread::sleep_for(2ms); // a slow callback would be overtaken if allowed
                journal.add(std::string(name) + " finished");
            })
                         : Task::FinishedCallback()));
    }
    gate.open();
    ASSERT_TRUE(waitUntil([&] { return journal.size() == 5; }));
    EXPECT_THAT(journal.entries(), ElementsAre("a run", "a finished", "b run", "c run", "c finished"));
}

TEST(TaskQueue, ADelayedTaskStartsNoEarlierThanItsDelay) {
    TaskSystem system;
    auto queue = system.manager.addQueue("work", 2);
    for (auto delay : {0ms, 15ms, 50ms}) {
        SCOPED_TRACE(delay.count());
        std::promise<Clock::time_point> started;
        const auto added = Clock::now();
        queue->addTask(makeTask("delayed",
                                [&](RunContext&) {
                                    started.set_value(Clock::now());
                                    return true;
                                }),
                       delay);
        // Due times are kept in whole milliseconds.
        EXPECT_GE(started.get_future().get() - added, delay - 1ms);
    }
}

TEST(TaskQueue, NeverRunsMoreThanMaxThreadsAtOnce) {
    TaskSystem system;
    auto queue = system.manager.addQueue("work", 3);
    Gate gate;
    std::atomic<int> inFlight{0};
    std::atomic<int> mostInFlight{0};
    std::vector<int> ids;
    for (int i = 0; i < 12; ++i) {
        ids.push_back(queue
                          ->addTask(makeTask("limited",
                                             [&](RunContext&) {
                                                 const int now = ++inFlight;
                                                 int seen = mostInFlight.load();
                                                 while (now > seen &&
                                                        !mostInFlight.compare_exchange_weak(seen, now)) {
                                                 }
                                                 const bool opened = gate.wait();
                                                 --inFlight;
                                                 return opened;
                                             }))
                          .id());
    }
    ASSERT_TRUE(waitUntil([&] { return inFlight.load() == 3; }));
    EXPECT_EQ(queue->running(), 3);
    // With every thread of the queue taken, the others wait whatever the dispatcher does meanwhile.
    for (std::size_t i = 3; i < ids.size(); ++i)
        EXPECT_EQ(system.manager.getTaskRunInfo(ids[i]).state, TaskRun::Waiting);
    gate.open();
    ASSERT_TRUE(waitUntil([&] { return queue->empty(); }));
    EXPECT_EQ(mostInFlight.load(), 3);
}

TEST(TaskQueue, RunCallbackFailuresAreLoggedAndFailTheTask) {
    struct Case {
        std::string label;
        Task::RunCallback run;
        std::string message;
    };
    std::vector<Case> cases;
    cases.push_back({"std::exception", [](RunContext&) -> bool { throw std::runtime_error("disk full"); },
                     "Task \"import\" threw an std::exception | queue=work | message=disk full"});
    cases.push_back({"other", [](RunContext&) -> bool { throw 42; },
                     "Task \"import\" threw an unknown exception | queue=work"});
    cases.push_back({"empty callback", nullptr,
                     std::string("Task \"import\" threw an std::exception | queue=work | message=") +
                         std::bad_function_call().what()});
    cases.push_back({"returns false", [](RunContext&) { return false; }, ""});
    for (Case& row : cases) {
        SCOPED_TRACE(row.label);
        TaskSystem system;
        auto queue = system.manager.addQueue("work", 1);
        std::promise<bool> outcome;
        auto task = makeTask("import", std::move(row.run),
                             [&](FinishContext& context) { outcome.set_value(context.succeeded()); });
        queue->addTask(task);
        EXPECT_FALSE(outcome.get_future().get());
        ASSERT_TRUE(waitUntil([&] { return task->currentRun()->state() == TaskRun::Failed; }));
        const auto entries = system.log->entries();
        if (row.message.empty()) {
            EXPECT_TRUE(entries.empty());
            continue;
        }
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].message, row.message);
        EXPECT_EQ(entries[0].level, Log::Level::Error);
        EXPECT_THAT(entries[0].file, ::testing::HasSubstr("Zel/Tasks/Queue"));
    }
}

TEST(TaskQueue, FinishedCallbackFailuresAreLoggedAndTheQueueGoesOn) {
    struct Case {
        std::function<void()> failure;
        std::string message;
    };
    const Case cases[] = {
        {[] { throw std::logic_error("oops"); },
         "Task \"import\" finish callback threw an std::exception | message=oops"},
        {[] { throw 'x'; }, "Task \"import\" finish callback threw an unknown exception"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.message);
        TaskSystem system;
        auto queue = system.manager.addQueue("work", 1);
        queue->addTask(makeTask(
            "import", [](RunContext&) { return true; }, [&](FinishContext&) { row.failure(); }));
        std::promise<void> next;
        queue->addTask(makeTask("next", [&](RunContext&) {
            next.set_value();
            return true;
        }));
        EXPECT_EQ(next.get_future().wait_for(30s), std::future_status::ready);
        ASSERT_TRUE(waitUntil([&] { return system.log->size() == 1; }));
        EXPECT_EQ(system.log->messages()[0], row.message);
    }
}

TEST(TaskQueue, InstallsTheTasksLogContextWhileItsCallbacksRun) {
    TaskSystem system;
    auto queue = system.manager.addQueue("work", 1);
    std::promise<std::pair<int, std::string>> inRun;
    std::promise<std::pair<int, std::string>> inFinish;
    auto task = makeTask(
        "context",
        [&](RunContext&) {
            system.log->info("inside the run");
            inRun.set_value({Log::ThreadContext::currentSubsystem(), Log::ThreadContext::currentContext()});
            return true;
        },
        [&](FinishContext&) {
            inFinish.set_value(
                {Log::ThreadContext::currentSubsystem(), Log::ThreadContext::currentContext()});
        },
        TaskOptions().setLogSubsystem(7).setLogContext("order 42"));
    queue->addTask(task);
    EXPECT_EQ(inRun.get_future().get(), std::make_pair(7, std::string("order 42")));
    EXPECT_EQ(inFinish.get_future().get(), std::make_pair(7, std::string("order 42")));
    const auto entries = system.log->entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].subsystem, 7);
    EXPECT_EQ(entries[0].context, "order 42");
}

TEST(TaskQueue, RaisesStateChangesForEveryRunAndQueueEmptyOnceDrained) {
    TaskSystem system;
    StateRecorder recorder(*system.events);
    std::atomic<int> emptied{0};
    system.events->attach("tasks.queueEmpty.work", [&](const Events::Event&) { ++emptied; });
    auto queue = system.manager.addQueue("work", 1);
    Gate gate;
    const int blockerId = queue->addTask(blocker(gate)).id();
    const int okId = queue->addTask(makeTask("ok", [](RunContext&) { return true; })).id();
    const int failId = queue->addTask(makeTask("fail", [](RunContext&) { return false; })).id();
    EXPECT_EQ(emptied.load(), 0);
    gate.open();
    ASSERT_TRUE(waitUntil([&] { return emptied.load() == 1; }));
    for (int id : {blockerId, okId}) {
        const auto runs = recorder.runs(id);
        ASSERT_EQ(runs.size(), 1u);
        EXPECT_THAT(recorder.states(runs[0]),
                    ElementsAre(TaskRun::Waiting, TaskRun::Running, TaskRun::Succeeded));
    }
    const auto failRuns = recorder.runs(failId);
    ASSERT_EQ(failRuns.size(), 1u);
    EXPECT_THAT(recorder.states(failRuns[0]),
                ElementsAre(TaskRun::Waiting, TaskRun::Running, TaskRun::Failed));
    EXPECT_EQ(emptied.load(), 1);
}

TEST(TaskQueue, ClearDropsWaitingRunsSilentlyAndAsksRunningOnesToStop) {
    TaskSystem system;
    StateRecorder recorder(*system.events);
    auto queue = system.manager.addQueue("work", 1);
    std::promise<void> running;
    std::atomic<bool> sawCancel{false};
    Journal finished;
    const int runningId = queue
                              ->addTask(makeTask(
                                  "running",
                                  [&](RunContext& context) {
                                      running.set_value();
                                      while (!context.canceled())
                                          std::this_thread::sleep_for(1ms);
                                      sawCancel = true;
                                      return false;
                                  },
                                  [&](FinishContext&) { finished.add("running"); },
                                  TaskOptions().setRetryCount(3).setRetryMinBackoff(1ms)))
                              .id();
    running.get_future().wait();
    std::vector<int> dropped;
    for (int i = 0; i < 3; ++i) {
        dropped.push_back(queue
                              ->addTask(makeTask(
                                  "dropped", [&](RunContext&) { return true; },
                                  [&](FinishContext&) { finished.add("dropped"); },
                                  TaskOptions().setReference("r" + std::to_string(i))))
                              .id());
    }
    queue->clear();
    ASSERT_TRUE(waitUntil([&] { return queue->empty(); }));
    EXPECT_TRUE(sawCancel);
    EXPECT_THAT(finished.entries(), ElementsAre("running"));
    EXPECT_THAT(recorder.states(recorder.runs(runningId).at(0)),
                ElementsAre(TaskRun::Waiting, TaskRun::Running, TaskRun::Canceling, TaskRun::Failed));
    for (int id : dropped) {
        EXPECT_THAT(recorder.states(recorder.runs(id).at(0)), ElementsAre(TaskRun::Waiting, TaskRun::Failed));
    }
    // The references were released with the runs: the same ones are accepted again.
    std::promise<void> again;
    EXPECT_FALSE(queue
                     ->addTask(makeTask(
                         "again",
                         [&](RunContext&) {
                             again.set_value();
                             return true;
                         },
                         nullptr, TaskOptions().setReference("r0")))
                     .existingTask());
    EXPECT_EQ(again.get_future().wait_for(30s), std::future_status::ready);
}

TEST(TaskQueue, ARemovedQueueRefusesTasksWithItsState) {
    TaskSystem system;
    auto queue = system.manager.addQueue("work", 1);
    Gate gate;
    std::promise<void> started;
    std::atomic<bool> finished{false};
    queue->addTask(makeTask("holding", [&](RunContext&) {
        started.set_value();
        const bool opened = gate.wait();
        finished = true;
        return opened;
    }));
    started.get_future().wait();
    queue->removeAsync();
    EXPECT_EQ(queue->state(), Queue::State::Removing);
    auto refused = [&] {
        try {
            queue->addTask(makeTask("late", [](RunContext&) { return true; }));
        } catch (const GenericException& exception) {
            return std::string(exception.what());
        }
        return std::string("accepted");
    };
    EXPECT_EQ(refused(), "Queue is not running | state=1");
    EXPECT_EQ(system.manager.queue("work", false), queue); // still there until its run is over
    gate.open();
    queue->remove();
    EXPECT_TRUE(finished);
    EXPECT_EQ(queue->state(), Queue::State::Removed);
    EXPECT_EQ(refused(), "Queue is not running | state=2");
    EXPECT_EQ(system.manager.queue("work", false), nullptr);
    // The name is free again.
    EXPECT_NE(system.manager.addQueue("work", 1), queue);
}

TEST(TaskQueue, RemovingAnIdleQueueIsImmediate) {
    TaskSystem system;
    auto queue = system.manager.addQueue("idle", 1);
    queue->remove();
    EXPECT_EQ(queue->state(), Queue::State::Removed);
    EXPECT_TRUE(system.manager.queues().empty());
}

TEST(TaskQueue, JsonListsEveryRunWithItsTask) {
    TaskSystem system;
    auto queue = system.manager.addQueue("work", 1);
    Gate gate;
    std::promise<void> blocked;
    queue->addTask(blocker(gate, &blocked));
    blocked.get_future().wait();
    queue->addTask(makeTask(
                       "later", [](RunContext&) { return true; }, nullptr, TaskOptions().setTag(3)),
                   1h);
    const Variant json = Json::parse(queue->toJson());
    EXPECT_EQ(static_cast<std::string>(json["name"]), "work");
    EXPECT_EQ(static_cast<int>(json["state"]), 0);
    EXPECT_EQ(static_cast<int>(json["maxThreads"]), 1);
    EXPECT_EQ(static_cast<int>(json["runningCount"]), 1);
    ASSERT_EQ(json["running"].size(), 1u);
    EXPECT_EQ(static_cast<std::string>(json["running"][0]["task"]["name"]), "blocker");
    EXPECT_EQ(static_cast<int>(json["running"][0]["state"]), TaskRun::Running);
    ASSERT_EQ(json["waiting"].size(), 1u);
    EXPECT_EQ(static_cast<std::string>(json["waiting"][0]["task"]["queue"]), "work");
    EXPECT_EQ(static_cast<int>(json["waiting"][0]["task"]["options"]["tag"]), 3);
    EXPECT_EQ(json["finished"].size(), 0u);
    gate.open();
}

} // namespace
} // namespace Zel::Tasks
