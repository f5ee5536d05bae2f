#include <Zel/Async/Threads/Manager.h>
#include <Zel/GenericException.h>
#include <Zel/Log/LogString.h>
#include <atomic>
#include <chrono>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <latch>
#include <memory>
#include <pthread.h>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

namespace Zel::Async::Threads {
namespace {

using namespace std::chrono_literals;

template <class Condition>
bool waitUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(200us);
    }
    return true;
}

TEST(ThreadsManager, RunsTheFunctionOnANamedPoolThread) {
    Manager manager;
    std::promise<std::pair<std::string, std::string>> seen;
    std::thread::id poolThread;
    manager.start(
        [&] {
            char systemName[32] = {};
            pthread_getname_np(pthread_self(), systemName, sizeof systemName);
            poolThread = std::this_thread::get_id();
            seen.set_value({Manager::currentThreadName(), systemName});
        },
        "file Zel/Tasks/Queue (120)");
    auto future = seen.get_future();
    ASSERT_EQ(future.wait_for(30s), std::future_status::ready);
    const auto [name, systemName] = future.get();
    EXPECT_EQ(name, "file Zel/Tasks/Queue (120)");
    EXPECT_EQ(systemName, "file Zel/Tasks/"); // the system keeps 15 bytes
    EXPECT_NE(poolThread, std::this_thread::get_id());
    EXPECT_EQ(Manager::currentThreadName(), "");
}

TEST(ThreadsManager, ReusesAnIdleThreadInsteadOfCreatingOne) {
    Manager manager;
    std::set<std::thread::id> threads;
    for (int i = 0; i < 50; ++i) {
        std::promise<std::thread::id> ran;
        manager.start([&] { ran.set_value(std::this_thread::get_id()); }, "worker");
        threads.insert(ran.get_future().get());
        // The function has returned; the thread goes back to the pool a moment later.
        ASSERT_TRUE(waitUntil([&] { return manager.busyCount() == 0; }));
    }
    EXPECT_EQ(threads.size(), 1u);
    EXPECT_EQ(manager.createdCount(), 1u);
    EXPECT_EQ(manager.threadCount(), 1u);
}

TEST(ThreadsManager, CreatesThreadsWhileEveryThreadIsBusy) {
    constexpr int concurrent = 4;
    Manager manager;
    std::latch allRunning(concurrent);
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    for (int i = 0; i < concurrent; ++i) {
        manager.start(
            [&allRunning, released] {
                allRunning.count_down();
                released.wait();
            },
            "worker " + std::to_string(i));
    }
    // Only possible when every function has a thread of its own.
    allRunning.wait();
    EXPECT_EQ(manager.threadCount(), static_cast<std::size_t>(concurrent));
    EXPECT_EQ(manager.busyCount(), static_cast<std::size_t>(concurrent));
    release.set_value();
    ASSERT_TRUE(waitUntil([&] { return manager.busyCount() == 0; }));
    EXPECT_EQ(manager.threadCount(), static_cast<std::size_t>(concurrent));
}

TEST(ThreadsManager, IdleThreadsEndAfterTheirTimeout) {
    Manager manager(nullptr, 20ms);
    std::latch bothRunning(2);
    for (int i = 0; i < 2; ++i) {
        manager.start([&] { bothRunning.arrive_and_wait(); }, "short");
    }
    bothRunning.wait();
    ASSERT_TRUE(waitUntil([&] { return manager.threadCount() == 0; }));
    EXPECT_EQ(manager.createdCount(), 2u);
    // The pool still works after its threads ended.
    std::promise<void> ran;
    manager.start([&] { ran.set_value(); }, "again");
    EXPECT_EQ(ran.get_future().wait_for(30s), std::future_status::ready);
    EXPECT_EQ(manager.createdCount(), 3u);
}

TEST(ThreadsManager, AFunctionThatThrowsIsLoggedAndItsThreadServesTheNext) {
    auto log = std::make_shared<Log::LogString>();
    Manager manager(log);
    struct Case {
        std::function<void()> body;
        std::string message;
    };
    const Case cases[] = {
        {[] { throw std::runtime_error("socket closed"); },
         "Thread function threw an std::exception | thread=reader | message=socket closed"},
        {[] { throw 7; }, "Thread function threw an unknown exception | thread=reader"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.message);
        log->clear();
        manager.start([&] { row.body(); }, "reader");
        ASSERT_TRUE(waitUntil([&] { return manager.busyCount() == 0 && log->size() == 1; }));
        EXPECT_THAT(log->messages(), ::testing::ElementsAre(row.message));
    }
    std::promise<void> ran;
    manager.start([&] { ran.set_value(); }, "reader");
    EXPECT_EQ(ran.get_future().wait_for(30s), std::future_status::ready);
    EXPECT_EQ(manager.createdCount(), 1u);
}

TEST(ThreadsManager, ReleasesWhatAFunctionOwnedAsSoonAsItReturns) {
    Manager manager;
    auto resource = std::make_shared<int>(1);
    std::weak_ptr<int> watch = resource;
    manager.start([held = std::move(resource)] {}, "owner");
    ASSERT_TRUE(waitUntil([&] { return manager.busyCount() == 0; }));
    EXPECT_TRUE(watch.expired());
}

TEST(ThreadsManager, AJoinableFunctionIsOverAndForgottenOnceItsCompletionSaysSo) {
    Manager manager;
    for (int round = 0; round < 50; ++round) {
        auto held = std::make_shared<int>(round);
        std::weak_ptr<int> watch = held;
        const Manager::Completion done = manager.startJoinable([held = std::move(held)] {}, "joinable");
        done.wait();
        EXPECT_TRUE(done.done());
        EXPECT_TRUE(watch.expired());
        EXPECT_EQ(manager.busyCount(), 0u);
    }
}

TEST(ThreadsManager, StopWaitsForRunningFunctionsJoinsEveryThreadAndRefusesNewWork) {
    Manager manager;
    std::atomic<int> finished{0};
    std::latch started(3);
    for (int i = 0; i < 3; ++i) {
        manager.start(
            [&] {
                started.count_down();
                std::this_thread::sleep_for(20ms);
                ++finished;
            },
            "slow");
    }
    started.wait();
    manager.stop();
    EXPECT_EQ(finished.load(), 3);
    EXPECT_EQ(manager.threadCount(), 0u);
    try {
        manager.start([] {}, "late");
        FAIL() << "start after stop must throw";
    } catch (const GenericException& exception) {
        EXPECT_STREQ(exception.what(), "Thread manager is stopped");
    }
}

TEST(ThreadsManager, StopFromAPoolThreadIsRefused) {
    Manager manager;
    std::promise<std::string> outcome;
    manager.start(
        [&] {
            try {
                manager.stop();
                outcome.set_value("stopped");
            } catch (const GenericException& exception) {
                outcome.set_value(exception.what());
            }
        },
        "self");
    EXPECT_EQ(outcome.get_future().get(), "Thread manager cannot be stopped from one of its own threads");
}

} // namespace
} // namespace Zel::Async::Threads
