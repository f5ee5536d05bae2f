#include "TestSupport.h"

#include <Zel/ArgumentException.h>
#include <Zel/GenericException.h>
#include <Zel/Log/ThreadContext.h>
#include <Zel/Tasks/Manager.h>
#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace Zel::Tasks {
namespace {

using namespace std::chrono_literals;
using Testing::Gate;
using Testing::makeTask;
using Testing::TaskSystem;
using Testing::waitUntil;

template <class Action>
std::string messageOf(Action action) {
    try {
        action();
    } catch (const std::exception& exception) {
        return exception.what();
    }
    return "(no exception)";
}

TEST(TasksManager, GoesThroughItsStatesAndCanStartAgain) {
    Manager manager(nullptr, nullptr, nullptr);
    EXPECT_EQ(manager.state(), Manager::State::Stopped);
    EXPECT_TRUE(manager.stopped());
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        manager.start();
        EXPECT_EQ(manager.state(), Manager::State::Running);
        EXPECT_FALSE(manager.stopped());
        manager.addQueue("work", 1);
        manager.stop();
        EXPECT_EQ(manager.state(), Manager::State::Stopped);
        EXPECT_TRUE(manager.queues().empty());
    }
    manager.stop(); // stopping a stopped manager does nothing
    EXPECT_TRUE(manager.stopped());
}

TEST(TasksManager, RefusesWhatItsStateDoesNotAllow) {
    Manager manager(nullptr, nullptr, nullptr);
    EXPECT_EQ(messageOf([&] { manager.addQueue("work", 1); }), "Tasks are not running");
    manager.start();
    EXPECT_EQ(messageOf([&] { manager.start(); }), "Tasks are already running");
    manager.addQueue("work", 2);
    EXPECT_EQ(messageOf([&] { manager.addQueue("work", 5); }), "Task queue already exists | name=work");
    EXPECT_THROW(manager.addQueue("none", 0), ArgumentException);
    EXPECT_EQ(messageOf([&] { manager.queue("mail"); }), "Task queue not found | name=mail");
    EXPECT_EQ(
        messageOf([&] { manager.addTask(makeTask("t", [](RunContext&) { return true; }), "mail", 0ms); }),
        "Task queue not found | name=mail");
    EXPECT_EQ(manager.queue("mail", false), nullptr);
    manager.stop();
}

TEST(TasksManager, ListsQueuesInNameOrder) {
    TaskSystem system;
    for (const char* name : {"mail", "archive", "print"})
        system.manager.addQueue(name, 1);
    std::vector<std::string> names;
    for (const auto& queue : system.manager.queues())
        names.push_back(queue->name());
    EXPECT_THAT(names, ::testing::ElementsAre("archive", "mail", "print"));
    EXPECT_EQ(system.manager.queue("print")->maxThreads(), 1);
}

TEST(TasksManager, GivesIdsFromOneUpAcrossQueuesAndRestarts) {
    Manager manager(nullptr, nullptr, nullptr);
    std::vector<int> ids;
    for (int round = 0; round < 2; ++round) {
        manager.start();
        manager.addQueue("a", 1);
        manager.addQueue("b", 1);
        for (const char* queue : {"a", "b", "a"}) {
            auto task = makeTask("t", [](RunContext&) { return true; });
            const TaskAddResult result = manager.addTask(task, queue, 0ms);
            EXPECT_FALSE(result.existingTask());
            EXPECT_EQ(task->id(), result.id());
            EXPECT_EQ(task->addCount(), 1);
            ids.push_back(result.id());
        }
        manager.stop();
    }
    EXPECT_THAT(ids, ::testing::ElementsAre(1, 2, 3, 4, 5, 6));
}

TEST(TasksManager, RunsRunCallbacksOnNamedWorkersAndFinishedCallbacksOnTheEngine) {
    TaskSystem system;
    system.manager.addQueue("work", 1);
    std::promise<std::string> workerName;
    std::promise<std::string> engineName;
    system.manager.addTask(
        makeTask(
            "named",
            [&](RunContext&) {
                workerName.set_value(Async::Threads::Manager::currentThreadName());
                return true;
            },
            [&](FinishContext&) { engineName.set_value(Async::Threads::Manager::currentThreadName()); }),
        "work", 0ms);
    EXPECT_TRUE(
        std::regex_match(workerName.get_future().get(), std::regex(R"(file Zel/Tasks/Queue \(\d+\))")));
    EXPECT_TRUE(
        std::regex_match(engineName.get_future().get(), std::regex(R"(file Zel/Tasks/Manager \(\d+\))")));
}

TEST(TasksManager, StopAsksRunningTasksToStopDropsWaitingOnesAndWaits) {
    auto system = std::make_unique<TaskSystem>();
    system->manager.addQueue("work", 1);
    Gate running;
    std::atomic<bool> sawCancel{false};
    std::vector<std::string> finished;
    std::mutex finishedMutex;
    auto record = [&](const char* name) {
        return [&, name](FinishContext& context) {
            std::lock_guard lock(finishedMutex);
            finished.push_back(std::string(name) + (context.succeeded() ? " ok" : " failed"));
        };
    };
    auto longRun = makeTask(
        "long",
        [&](RunContext& context) {
            running.open();
            while (!context.canceled())
                std::this_thread::sleep_for(1ms);
            sawCancel = true;
            return false;
        },
        record("long"), TaskOptions().setRetryCount(5).setRetryMinBackoff(1ms));
    auto waiting = makeTask(
        "waiting", [](RunContext&) { return true; }, record("waiting"));
    std::weak_ptr<Task> waitingWatch = waiting;
    system->manager.addTask(longRun, "work", 0ms);
    system->manager.addTask(std::move(waiting), "work", 0ms);
    ASSERT_TRUE(running.wait());
    system->manager.stop();
    EXPECT_TRUE(sawCancel);
    EXPECT_THAT(finished, ::testing::ElementsAre("long failed")); // no retry, no callback for the dropped one
    EXPECT_EQ(longRun->retried(), 0);
    EXPECT_TRUE(waitingWatch.expired());
    EXPECT_EQ(system->threads->busyCount(), 0u);
}

TEST(TasksManager, DestroyingARunningManagerStopsIt) {
    auto threads = std::make_shared<Async::Threads::Manager>();
    std::atomic<int> runs{0};
    {
        Manager manager(threads, nullptr, nullptr);
        manager.start();
        manager.addQueue("work", 2);
        for (int i = 0; i < 20; ++i)
            manager.addTask(makeTask("t", [&](RunContext&) { return ++runs > 0; }), "work", 0ms);
    }
    EXPECT_EQ(threads->busyCount(), 0u);
    EXPECT_LE(runs.load(), 20);
}

TEST(TasksManager, StopFromItsOwnCallbacksIsRefusedAndLogged) {
    // Either would wait for itself: the engine runs finished callbacks, and stopping waits for runs.
    struct Case {
        bool fromFinishedCallback;
        std::string expected;
    };
    const Case cases[] = {
        {true, R"(Task "stopper" finish callback threw an std::exception \| )"},
        {false, R"(Task "stopper" threw an std::exception \| queue=work \| )"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.fromFinishedCallback ? "finished callback" : "run callback");
        TaskSystem system;
        system.manager.addQueue("work", 1);
        std::promise<void> done;
        auto stopFrom = [&](bool here) {
            if (here) system.manager.stop();
        };
        system.manager.addTask(makeTask(
                                   "stopper",
                                   [&](RunContext&) {
                                       stopFrom(!row.fromFinishedCallback);
                                       return true;
                                   },
                                   [&](FinishContext&) {
                                       struct Done {
                                           std::promise<void>& promise;
                                           ~Done() { promise.set_value(); }
                                       } signal{done};
                                       stopFrom(row.fromFinishedCallback);
                                   }),
                               "work", 0ms);
        done.get_future().wait();
        ASSERT_TRUE(waitUntil([&] { return system.log->size() == 1; }));
        const std::string message = system.log->messages()[0];
        EXPECT_TRUE(std::regex_match(message,
                                     std::regex(row.expected + R"(message=Invalid operation \| func=stop \| )"
                                                               R"(file=Zel/Tasks/Manager \| line=\d+)")))
            << message;
        EXPECT_EQ(system.manager.state(), Manager::State::Running);
    }
}

TEST(TasksManager, StopWhileStartingEndsStopped) {
    for (int round = 0; round < 20; ++round) {
        Manager manager(nullptr, nullptr, nullptr);
        std::thread stopper([&] { manager.stopAsync(); });
        manager.start();
        stopper.join();
        manager.stop();
        EXPECT_TRUE(manager.stopped());
    }
}

TEST(TasksManager, AFinishedTasksRunCallbackIsDestroyedFirstAndWithoutTheLock) {
    TaskSystem system;
    system.manager.addQueue("work", 1);
    // Destroyed with the run callback. Another thread must be able to use the manager meanwhile:
    // the destructor of what a callback holds may wait for the manager, as user code does.
    struct Holder {
        Manager* manager;
        std::atomic<bool>* destroyed;
        std::atomic<bool>* lockFree;
        ~Holder() {
            if (!manager) return;
            std::promise<void> answered;
            std::thread other([&] {
                manager->taskCount();
                answered.set_value();
            });
            lockFree->store(answered.get_future().wait_for(10s) == std::future_status::ready);
            other.join();
            destroyed->store(true);
        }
    };
    std::atomic<bool> destroyed{false};
    std::atomic<bool> lockFree{false};
    std::promise<bool> destroyedBeforeFinish;
    auto holder = std::make_shared<Holder>(Holder{&system.manager, &destroyed, &lockFree});
    system.manager.addTask(makeTask(
                               "holding", [holder = std::move(holder)](RunContext&) { return true; },
                               [&](FinishContext&) { destroyedBeforeFinish.set_value(destroyed.load()); }),
                           "work", 0ms);
    auto future = destroyedBeforeFinish.get_future();
    ASSERT_EQ(future.wait_for(30s), std::future_status::ready);
    EXPECT_TRUE(future.get());
    EXPECT_TRUE(lockFree.load());
}

TEST(TasksManager, QueuesTakeTurnsOnTheSharedWorkers) {
    // One worker: the order of the runs shows how the queues share it.
    TaskSystem system(5000ms, 30000ms, nullptr, 1);
    auto busy = system.manager.addQueue("busy", 2);
    auto quiet = system.manager.addQueue("quiet", 1);
    Gate gate;
    std::promise<void> holding;
    std::mutex orderMutex;
    std::vector<std::string> order;
    auto record = [&](std::string name) {
        return [&, name](RunContext&) {
            std::lock_guard lock(orderMutex);
            order.push_back(name);
            return true;
        };
    };
    busy->addTask(makeTask("hold", [&](RunContext&) {
        holding.set_value();
        return gate.wait();
    }));
    holding.get_future().wait();
    for (int i = 0; i < 50; ++i)
        busy->addTask(makeTask("backlog", record("busy")));
    std::promise<void> quietRan;
    quiet->addTask(makeTask("quiet", [&](RunContext& context) {
        record("quiet")(context);
        quietRan.set_value();
        return true;
    }));
    gate.open();
    ASSERT_EQ(quietRan.get_future().wait_for(30s), std::future_status::ready);
    // The backlog still runs and records into locals that die before the system does.
    system.manager.stop();
    // Its turn comes after at most one run of the other queue, not after the whole backlog.
    const auto position = std::find(order.begin(), order.end(), "quiet") - order.begin();
    EXPECT_LE(position, 1) << "quiet ran after " << position << " runs of the busy queue";
}

TEST(TasksManager, ThePoolGrowsWhenEveryWorkerIsBlocked) {
    // Three runs that wait for each other on one worker would wait forever without the growth.
    TaskSystem system(5000ms, 30000ms, nullptr, 1);
    system.manager.addQueue("first", 2);
    system.manager.addQueue("second", 1);
    std::mutex mutex;
    std::condition_variable changed;
    int arrived = 0;
    std::atomic<int> met{0};
    auto meet = [&](RunContext&) {
        std::unique_lock lock(mutex);
        ++arrived;
        changed.notify_all();
        if (changed.wait_for(lock, 30s, [&] { return arrived == 3; })) ++met;
        return true;
    };
    system.manager.addTask(makeTask("a", meet), "first", 0ms);
    system.manager.addTask(makeTask("b", meet), "first", 0ms);
    system.manager.addTask(makeTask("c", meet), "second", 0ms);
    ASSERT_TRUE(waitUntil([&] { return met.load() == 3; }));
    EXPECT_GE(system.manager.workerCount(), 3);
    // The runs may still be on their way out of `meet`, whose mutex dies before the system does.
    system.manager.stop();
}

} // namespace
} // namespace Zel::Tasks
