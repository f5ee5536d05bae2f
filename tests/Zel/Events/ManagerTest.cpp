#include <Zel/Events/Manager.h>

#include <Zel/Log/LogString.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Zel::Events {
namespace {

using ::testing::ElementsAre;

class OrderShipped : public Event {
public:
    explicit OrderShipped(int order) : Event("orders.shipped"), m_order(order) {}
    int order() const { return m_order; }

private:
    int m_order;
};

TEST(EventsManager, DeliversToTheHandlersAttachedUnderTheNameInAttachOrder) {
    Manager manager;
    std::vector<std::string> calls;
    manager.attach("orders.created", [&](const Event& event) { calls.push_back("first " + event.name()); });
    manager.attach("orders.deleted", [&](const Event& event) { calls.push_back("other " + event.name()); });
    manager.attach("orders.created", [&](const Event& event) { calls.push_back("second " + event.name()); });
    manager.raise("orders.created");
    EXPECT_THAT(calls, ElementsAre("first orders.created", "second orders.created"));
    calls.clear();
    manager.raise("orders.unknown");
    EXPECT_TRUE(calls.empty());
}

TEST(EventsManager, TypedHandlersSeeOnlyEventsOfTheirType) {
    Manager manager;
    std::vector<int> orders;
    int plain = 0;
    manager.attach<OrderShipped>("orders.shipped",
                                 [&](const OrderShipped& event) { orders.push_back(event.order()); });
    manager.attach("orders.shipped", [&](const Event&) { ++plain; });
    manager.raise(OrderShipped(17));
    manager.raise("orders.shipped"); // a plain event under the same name
    manager.raise(OrderShipped(18));
    EXPECT_THAT(orders, ElementsAre(17, 18));
    EXPECT_EQ(plain, 3);
}

TEST(EventsManager, AHandlerThatThrowsIsLoggedAndTheOthersStillRun) {
    struct Case {
        std::function<void()> failure;
        std::string message;
    };
    const Case cases[] = {
        {[] { throw std::runtime_error("no printer"); },
         "Event handler threw an std::exception | event=job.done | message=no printer"},
        {[] { throw 3.5; }, "Event handler threw an unknown exception | event=job.done"},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.message);
        auto log = std::make_shared<Log::LogString>();
        Manager manager(log);
        int before = 0;
        int after = 0;
        manager.attach("job.done", [&](const Event&) { ++before; });
        manager.attach("job.done", [&](const Event&) { row.failure(); });
        manager.attach("job.done", [&](const Event&) { ++after; });
        EXPECT_NO_THROW(manager.raise("job.done"));
        EXPECT_EQ(before, 1);
        EXPECT_EQ(after, 1);
        ASSERT_EQ(log->entries().size(), 1u);
        EXPECT_EQ(log->entries()[0].level, Log::Level::Error);
        EXPECT_EQ(log->entries()[0].message, row.message);
    }
}

TEST(EventsManager, DetachStopsDeliveryAndKnowsItsIds) {
    Manager manager;
    int calls = 0;
    const auto id = manager.attach("tick", [&](const Event&) { ++calls; });
    EXPECT_NE(id, 0u);
    EXPECT_TRUE(manager.hasHandlers("tick"));
    EXPECT_FALSE(manager.hasHandlers("tock"));
    EXPECT_EQ(manager.handlerCount(), 1u);
    manager.raise("tick");
    EXPECT_TRUE(manager.detach(id));
    EXPECT_FALSE(manager.detach(id));
    EXPECT_FALSE(manager.detach(12345));
    manager.raise("tick");
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(manager.hasHandlers("tick"));
    EXPECT_EQ(manager.handlerCount(), 0u);
}

TEST(EventsManager, HandlersMayDetachThemselvesAttachOthersAndRaiseAgain) {
    Manager manager;
    std::vector<std::string> calls;
    IManager::HandlerId once = 0;
    once = manager.attach("a", [&](const Event&) {
        calls.push_back("once");
        manager.detach(once);
        manager.attach("b", [&](const Event&) { calls.push_back("b"); });
        manager.raise("b");
    });
    manager.raise("a");
    manager.raise("a");
    EXPECT_THAT(calls, ElementsAre("once", "b"));
}

TEST(EventsManager, StaysConsistentWhileThreadsRaiseAttachAndDetach) {
    Manager manager;
    std::atomic<int> permanentCalls{0};
    manager.attach("load", [&](const Event&) { ++permanentCalls; });
    constexpr int raisers = 3;
    constexpr int raisesEach = 4000;
    std::atomic<bool> raising{true};
    std::thread churner([&] {
        std::atomic<int> transient{0};
        while (raising) {
            const auto id = manager.attach("load", [&](const Event&) { ++transient; });
            manager.detach(id);
        }
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < raisers; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < raisesEach; ++i)
                manager.raise("load");
        });
    }
    for (auto& thread : threads)
        thread.join();
    raising = false;
    churner.join();
    EXPECT_EQ(permanentCalls.load(), raisers * raisesEach);
    EXPECT_EQ(manager.handlerCount(), 1u);
}

} // namespace
} // namespace Zel::Events
