#include "TestSupport.h"

#include <Zel/Tasks/ActiveObjectHelper.h>
#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <stdexcept>
#include <vector>

namespace Zel::Tasks {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using Testing::Gate;
using Testing::TaskSystem;
using Testing::waitUntil;

// An object whose work runs on a queue; its state must never be touched once it is destroyed.
class Counter {
public:
    Counter(std::shared_ptr<Log::ILog> log, Queue& queue)
        : m_active(std::move(log), queue, "counter", TaskOptions()) {}

    void incrementLater(std::chrono::milliseconds delay = 0ms) {
        m_active.post([this] { touch(); }, delay);
    }
    void post(UniqueFunction<void()> callback) { m_active.post(std::move(callback)); }
    int value() const { return m_value.load(); }
    ActiveObjectHelper& active() { return m_active; }

private:
    void touch() {
        if (!m_alive.value) throw std::logic_error("touched after destruction");
        ++m_value;
    }

    // Destroyed after m_active, so a callback that outlived the helper would see false.
    struct Alive {
        std::atomic<bool> value{true};
        ~Alive() { value = false; }
    } m_alive;
    std::atomic<int> m_value{0};
    ActiveObjectHelper m_active; // last: destroyed first
};

TEST(ActiveObjectHelper, RunsPostedCallbacksOnTheQueueInOrder) {
    TaskSystem system;
    auto queue = system.manager.addQueue("objects", 1);
    std::mutex mutex;
    std::vector<int> order;
    ActiveObjectHelper helper(system.log, *queue, "ordered", TaskOptions());
    for (int i = 0; i < 20; ++i) {
        helper.post([&, i] {
            std::lock_guard lock(mutex);
            order.push_back(i);
        });
    }
    ASSERT_TRUE(waitUntil([&] { return helper.pendingCount() == 0; }));
    std::lock_guard lock(mutex);
    ASSERT_EQ(order.size(), 20u);
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(order[i], i);
}

TEST(ActiveObjectHelper, DestructionCancelsWhatWaitsAndWaitsForWhatRuns) {
    TaskSystem system;
    auto queue = system.manager.addQueue("objects", 1);
    auto counter = std::make_unique<Counter>(system.log, *queue);
    Gate gate;
    std::promise<void> running;
    std::atomic<bool> callbackDone{false};
    counter->post([&] {
        running.set_value();
        gate.wait();
        std::this_thread::sleep_for(5ms);
        callbackDone = true;
    });
    for (int i = 0; i < 10; ++i)
        counter->incrementLater();
    counter->incrementLater(1h);
    running.get_future().wait();
    EXPECT_EQ(counter->active().pendingCount(), 12u);
    std::thread opener([&] {
        std::this_thread::sleep_for(5ms);
        gate.open();
    });
    counter.reset(); // returns only after the running callback
    EXPECT_TRUE(callbackDone);
    opener.join();
    ASSERT_TRUE(waitUntil([&] { return queue->empty(); }));
    EXPECT_FALSE(system.log->contains("touched after destruction"));
}

TEST(ActiveObjectHelper, ReferencesMergePostsThatStillWait) {
    TaskSystem system;
    auto queue = system.manager.addQueue("objects", 1);
    Gate gate;
    std::promise<void> blocked;
    queue->addTask(Testing::makeTask("blocker", [&](RunContext&) {
        blocked.set_value();
        return gate.wait();
    }));
    blocked.get_future().wait();
    std::atomic<int> refreshes{0};
    ActiveObjectHelper helper(system.log, *queue, "refresh", TaskOptions().setReference("refresh"));
    const TaskAddResult first = helper.post([&] { ++refreshes; });
    const TaskAddResult second = helper.post([&] { ++refreshes; });
    EXPECT_FALSE(first.existingTask());
    EXPECT_EQ(second, TaskAddResult(first.id(), true));
    EXPECT_EQ(helper.pendingCount(), 1u);
    gate.open();
    ASSERT_TRUE(waitUntil([&] { return helper.pendingCount() == 0; }));
    EXPECT_EQ(refreshes.load(), 1);
}

TEST(ActiveObjectHelper, ACallbackMayReportFailureAndSeeCancellation) {
    TaskSystem system;
    auto queue = system.manager.addQueue("objects", 1);
    ActiveObjectHelper helper(system.log, *queue, "cooperative", TaskOptions());
    std::promise<void> started;
    std::atomic<bool> sawCancel{false};
    helper.post(UniqueFunction<bool(RunContext&)>([&](RunContext& context) {
        started.set_value();
        while (!context.canceled())
            std::this_thread::sleep_for(1ms);
        sawCancel = true;
        return false;
    }));
    helper.post([] { throw std::runtime_error("bad state"); });
    started.get_future().wait();
    helper.cancelPending();
    ASSERT_TRUE(waitUntil([&] { return helper.pendingCount() == 0; }));
    EXPECT_TRUE(sawCancel);
    // The second callback was canceled before it started, so it never threw.
    EXPECT_FALSE(system.log->contains("bad state"));
}

TEST(ActiveObjectHelper, ExceptionsOfCallbacksAreLoggedByTheQueue) {
    TaskSystem system;
    auto queue = system.manager.addQueue("objects", 1);
    ActiveObjectHelper helper(system.log, *queue, "thrower", TaskOptions());
    helper.post([] { throw std::runtime_error("bad state"); });
    ASSERT_TRUE(waitUntil([&] { return helper.pendingCount() == 0; }));
    EXPECT_THAT(system.log->messages(),
                ElementsAre("Task \"thrower\" threw an std::exception | queue=objects | message=bad state"));
}

} // namespace
} // namespace Zel::Tasks
