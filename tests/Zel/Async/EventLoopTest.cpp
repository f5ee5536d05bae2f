#include <Zel/Async/EventLoop.h>
#include <Zel/Log/LogString.h>
#include <atomic>
#include <chrono>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace Zel::Async {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Runs a loop on a thread of its own for the duration of a test.
class RunningLoop {
public:
    explicit RunningLoop(std::shared_ptr<Log::ILog> log = nullptr) : loop(std::move(log)) {
        m_thread = std::thread([this] { loop.run(); });
    }
    ~RunningLoop() {
        loop.stopAsync();
        m_thread.join();
    }
    // Returns once every call posted before has run.
    void drain() {
        std::promise<void> done;
        loop.call([&] { done.set_value(); });
        ASSERT_EQ(done.get_future().wait_for(30s), std::future_status::ready);
    }

    EventLoop loop;

private:
    std::thread m_thread;
};

TEST(EventLoop, RunsCallsInTheOrderTheyWerePosted) {
    RunningLoop running;
    std::vector<int> order; // touched by the loop thread only until drain() returns
    for (int i = 0; i < 1000; ++i)
        running.loop.call([&order, i] { order.push_back(i); });
    running.drain();
    ASSERT_EQ(order.size(), 1000u);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(order[i], i);
}

TEST(EventLoop, KeepsEachPostersOrderWhenManyThreadsPost) {
    constexpr int posters = 4;
    constexpr int callsEach = 5000;
    RunningLoop running;
    std::vector<std::vector<int>> seen(posters);
    std::vector<std::thread> threads;
    for (int t = 0; t < posters; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < callsEach; ++i)
                running.loop.call([&seen, t, i] { seen[t].push_back(i); });
        });
    }
    for (auto& thread : threads)
        thread.join();
    running.drain();
    for (int t = 0; t < posters; ++t) {
        SCOPED_TRACE(t);
        ASSERT_EQ(seen[t].size(), static_cast<std::size_t>(callsEach));
        for (int i = 0; i < callsEach; ++i)
            ASSERT_EQ(seen[t][i], i);
    }
}

TEST(EventLoop, DelayedCallsWaitAtLeastTheirDelayAndRunInDueOrder) {
    RunningLoop running;
    struct Fired {
        int delayMs;
        Clock::duration after;
    };
    std::vector<Fired> fired;
    std::promise<void> done;
    const auto posted = Clock::now();
    // Delays far apart, so that a busy machine stalling between two posts cannot swap their order.
    for (int delayMs : {300, 100, 200, 0}) {
        running.loop.call(
            [&, delayMs] {
                fired.push_back({delayMs, Clock::now() - posted});
                if (fired.size() == 4) done.set_value();
            },
            std::chrono::milliseconds(delayMs));
    }
    ASSERT_EQ(done.get_future().wait_for(30s), std::future_status::ready);
    ASSERT_EQ(fired.size(), 4u);
    EXPECT_EQ(fired[0].delayMs, 0);
    EXPECT_EQ(fired[1].delayMs, 100);
    EXPECT_EQ(fired[2].delayMs, 200);
    EXPECT_EQ(fired[3].delayMs, 300);
    for (const Fired& call : fired) {
        SCOPED_TRACE(call.delayMs);
        EXPECT_GE(call.after, std::chrono::milliseconds(call.delayMs));
    }
}

TEST(EventLoop, ACallThatThrowsIsLoggedAndTheLoopGoesOn) {
    auto log = std::make_shared<Log::LogString>();
    RunningLoop running(log);
    running.loop.call([] { throw std::runtime_error("disk full"); });
    running.loop.call([] { throw 42; });
    bool ranAfter = false;
    running.loop.call([&] { ranAfter = true; });
    running.drain();
    EXPECT_TRUE(ranAfter);
    EXPECT_THAT(log->messages(),
                ::testing::ElementsAre("Event loop: a call threw an std::exception | message=disk full",
                                       "Event loop: a call threw an unknown exception"));
}

TEST(EventLoop, StopAsyncFromAnotherThreadEndsRunAndPendingCallsAreDestroyedUnrun) {
    auto token = std::make_shared<int>(0);
    std::atomic<bool> ran{false};
    {
        EventLoop loop;
        loop.call([token, &ran] { ran = true; }, 10min);
        std::thread runner([&] { loop.run(); });
        std::promise<void> started;
        loop.call([&] { started.set_value(); });
        ASSERT_EQ(started.get_future().wait_for(30s), std::future_status::ready);
        loop.stopAsync();
        runner.join();
        EXPECT_TRUE(loop.stopped());
        EXPECT_EQ(token.use_count(), 2); // still pending inside the loop
    }
    EXPECT_FALSE(ran);
    EXPECT_EQ(token.use_count(), 1);
}

TEST(EventLoop, StoppedBeforeRunReturnsAtOnce) {
    EventLoop loop;
    bool ran = false;
    loop.call([&] { ran = true; });
    loop.stopAsync();
    loop.run();
    EXPECT_FALSE(ran);
}

TEST(EventLoop, KnowsWhetherTheCallerIsItsThread) {
    RunningLoop running;
    EXPECT_FALSE(running.loop.runningInThisThread());
    bool inside = false;
    running.loop.call([&] { inside = running.loop.runningInThisThread(); });
    running.drain();
    EXPECT_TRUE(inside);
}

TEST(EventLoop, CallsMayPostFurtherCalls) {
    RunningLoop running;
    std::promise<int> result;
    std::function<void(int)> step = [&](int n) {
        if (n == 100) {
            result.set_value(n);
            return;
        }
        running.loop.call([&step, n] { step(n + 1); }, n % 10 == 0 ? 1ms : 0ms);
    };
    running.loop.call([&] { step(0); });
    auto future = result.get_future();
    ASSERT_EQ(future.wait_for(30s), std::future_status::ready);
    EXPECT_EQ(future.get(), 100);
}

} // namespace
} // namespace Zel::Async
