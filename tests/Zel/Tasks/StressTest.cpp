#include "TestSupport.h"

#include <Zel/GenericException.h>
#include <Zel/Tasks/Manager.h>
#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <vector>

namespace Zel::Tasks {
namespace {

using namespace std::chrono_literals;
using Testing::TaskSystem;
using Testing::waitUntil;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool sanitized = true;
#else
constexpr bool sanitized = false;
#endif
#else
constexpr bool sanitized = false;
#endif

// ZEL_STRESS_TASKS overrides the size; sanitizers slow every task down several times over.
int stressTaskCount() {
    if (const char* text = std::getenv("ZEL_STRESS_TASKS")) return std::max(1000, std::atoi(text));
    return sanitized ? 100000 : 300000;
}

constexpr int queueCount = 4;
constexpr int referenceCount = 64;
constexpr std::array<int, queueCount> maxThreads = {1, 2, 3, 4};
// Producers wait while this many added tasks are not over, so that queues stay short enough for
// references to be accepted again and for a run to meet another with its reference.
constexpr int maxOutstanding = 256;

// What the test knows about one task it made.
struct Record {
    std::atomic<int> id{0};
    std::atomic<bool> added{false};
    std::atomic<int> runs{0};
    std::atomic<int> finishedCalls{0};
    int retryCount = 0;
};

class StressTask : public Task {
public:
    static std::atomic<int> live;
    StressTask(int index, RunCallback&& run, FinishedCallback&& finished)
        : Task("stress", std::move(run), std::move(finished)), index(index) {
        ++live;
    }
    ~StressTask() override { --live; }
    const int index;
};
std::atomic<int> StressTask::live{0};

// Leader: while it runs, adds a follower with its own reference to its own queue, then keeps
// running; the follower must wait for it (uniqueness Waiting) or be refused (WaitingOrRunning).
enum class Kind { Quick, Slow, Failing, Throwing, WaitsForCancel, Leader, Follower };

class Stress {
public:
    explicit Stress(int total)
        : m_total(total), m_capacity(total + total / 10), m_records(std::make_unique<Record[]>(m_capacity)),
          m_nextFollower(total) {}

    void run() {
        for (int q = 0; q < queueCount; ++q)
            m_queues[q] = m_system.manager.addQueue("q" + std::to_string(q), maxThreads[q]);

        std::thread canceller([this] { cancelLoop(); });
        std::vector<std::thread> producers;
        for (int p = 0; p < producerCount; ++p)
            producers.emplace_back([this, p] { produce(p); });
        for (auto& producer : producers)
            producer.join();

        const bool drained = waitUntil([&] { return outstanding() == 0; }, 300s);
        m_producing = false;
        m_waitersChanged.notify_all();
        canceller.join();
        ASSERT_TRUE(drained) << outstanding() << " tasks not over";

        m_system.manager.stop();
        EXPECT_EQ(m_system.threads->busyCount(), 0u);
        m_system.threads->stop();
        EXPECT_EQ(m_system.threads->threadCount(), 0u);
        EXPECT_EQ(StressTask::live.load(), 0);

        const int records = m_nextFollower.load();
        for (int i = 0; i < records; ++i) {
            const Record& record = m_records[i];
            if (!record.added) {
                ASSERT_EQ(record.runs.load(), 0) << "task " << i;
                continue;
            }
            ASSERT_EQ(record.finishedCalls.load(), dropped(i) ? 0 : 1) << "task " << i;
            ASSERT_LE(record.runs.load(), record.retryCount + 1) << "task " << i;
        }
        EXPECT_EQ(m_concurrencyViolations.load(), 0);
        EXPECT_EQ(m_referenceOverlaps.load(), 0);
        EXPECT_EQ(m_followersAdmittedWhileLeaderRan.load(), 0);
        EXPECT_EQ(m_stuckWaiters.load(), 0);
        EXPECT_EQ(m_cancelErrors.load(), 0);
        // The mix must really have exercised what it claims to.
        EXPECT_GT(m_droppedByClear.size(), 0u);
        EXPECT_GT(m_canceledBeforeStart.load(), 0);
        EXPECT_GT(m_canceledWhileRunning.load(), 0);
        EXPECT_GT(m_refused.load(), 0);
        EXPECT_GT(m_followersWaited.load(), 0);
        EXPECT_GT(m_followersRefused.load(), 0);
        EXPECT_GT(m_retries.load(), 0);
        for (int q = 0; q < queueCount; ++q)
            EXPECT_LE(m_mostInFlight[q].load(), maxThreads[q]);
    }

private:
    static constexpr int producerCount = 4;

    bool dropped(int index) const { return m_droppedByClear.contains(index); }
    int outstanding() const { return m_added.load() - m_finished.load() - m_droppedCount.load(); }

    // Adds task `index`; false when a task with its reference was waiting (or running) already.
    TaskAddResult add(int index, int q, Kind kind, int reference, const TaskOptions& options,
                      std::chrono::milliseconds delay) {
        m_records[index].retryCount = options.retryCount();
        auto task = std::make_shared<StressTask>(
            index,
            [this, index, q, kind, reference](RunContext& context) {
                return execute(index, q, kind, reference, context);
            },
            [this, index](FinishContext&) {
                m_records[index].finishedCalls.fetch_add(1);
                m_finished.fetch_add(1);
            });
        task->setOptions(options);
        // Counted first, so that the task never looks over before it was counted as added.
        m_added.fetch_add(1);
        const TaskAddResult result = m_queues[q]->addTask(std::move(task), delay);
        if (result.existingTask()) {
            m_added.fetch_sub(1);
        } else {
            m_records[index].id = result.id();
            m_records[index].added = true;
        }
        return result;
    }

    void produce(int producer) {
        std::mt19937 random(1234 + producer);
        std::uniform_int_distribution<int> percent(0, 99);
        for (int i = producer; i < m_total; i += producerCount) {
            // From the middle on, now and then, until a clear found the first queue with runs waiting.
            if (producer == 0 && i >= m_total / 2 && m_droppedCount.load() == 0 &&
                i % (16 * producerCount) == 0)
                clearInTheMiddle();
            while (outstanding() > maxOutstanding)
                std::this_thread::sleep_for(50us);
            // Spread by capacity, so that the single-thread queue does not hold everyone up.
            const int slot = percent(random) % 10;
            const int q = slot < 1 ? 0 : slot < 3 ? 1 : slot < 6 ? 2 : 3;
            const int roll = percent(random);
            const Kind kind = roll < 68   ? Kind::Quick
                              : roll < 73 ? Kind::Slow
                              : roll < 86 ? Kind::Failing
                              : roll < 93 ? Kind::Throwing
                              : roll < 96 ? Kind::Leader
                                          : (percent(random) < 25 ? Kind::WaitsForCancel : Kind::Quick);
            TaskOptions options;
            if (kind == Kind::Failing || kind == Kind::Throwing) {
                options.setRetryCount(percent(random) % 3).setRetryMinBackoff(1ms).setRetryMaxBackoff(2ms);
            }
            int reference = -1;
            if (kind == Kind::Leader || percent(random) < 20) {
                reference = percent(random) % referenceCount;
                options.setReference("ref-" + std::to_string(reference));
                options.setUniqueness(percent(random) < 50 ? Uniqueness::Waiting
                                                           : Uniqueness::WaitingOrRunning);
            }
            const auto delay =
                percent(random) < 30 ? std::chrono::milliseconds(1 + percent(random) % 3) : 0ms;
            const TaskAddResult result = add(i, q, kind, reference, options, delay);
            if (result.existingTask()) {
                ++m_refused;
                continue;
            }
            if (percent(random) < 2) {
                // Most of these have not been dispatched yet.
                if (m_system.manager.cancelTaskAsync(result.id())) ++m_canceledBeforeStart;
            }
        }
    }

    void addFollower(int q, int reference, RunContext& leader) {
        const int index = m_nextFollower.fetch_add(1);
        if (index >= m_capacity) return;
        const bool refuseWhileRunning = (index & 1) != 0;
        const TaskOptions options =
            TaskOptions()
                .setReference("ref-" + std::to_string(reference))
                .setUniqueness(refuseWhileRunning ? Uniqueness::WaitingOrRunning : Uniqueness::Waiting);
        const TaskAddResult result = add(index, q, Kind::Follower, reference, options, 0ms);
        if (!result.existingTask()) {
            ++m_followersWaited;
            // Refused only if the leader's reference counted as running.
            if (refuseWhileRunning) ++m_followersAdmittedWhileLeaderRan;
        } else if (result.id() == leader.id()) {
            ++m_followersRefused;
        }
    }

    bool execute(int index, int q, Kind kind, int reference, RunContext& context) {
        Record& record = m_records[index];
        if (record.runs.fetch_add(1) > 0) ++m_retries;
        const int inFlight = m_inFlight[q].fetch_add(1) + 1;
        if (inFlight > maxThreads[q]) ++m_concurrencyViolations;
        int seen = m_mostInFlight[q].load();
        while (inFlight > seen && !m_mostInFlight[q].compare_exchange_weak(seen, inFlight)) {
        }
        if (reference >= 0 && m_referenceInFlight[q][reference].fetch_add(1) != 0) ++m_referenceOverlaps;

        struct Leave {
            std::atomic<int>& inFlight;
            std::atomic<int>* referenceInFlight;
            ~Leave() {
                if (referenceInFlight) referenceInFlight->fetch_sub(1);
                inFlight.fetch_sub(1);
            }
        } leave{m_inFlight[q], reference >= 0 ? &m_referenceInFlight[q][reference] : nullptr};

        switch (kind) {
        case Kind::Quick:
        case Kind::Follower:
            return true;
        case Kind::Slow:
            std::this_thread::sleep_for(50us);
            return true;
        case Kind::Failing:
            return false;
        case Kind::Throwing:
            throw std::runtime_error("stress failure");
        case Kind::Leader:
            addFollower(q, reference, context);
            // Long enough for the follower to be dispatched, were it allowed to overlap.
            std::this_thread::sleep_for(150us);
            return true;
        case Kind::WaitsForCancel: {
            {
                std::lock_guard lock(m_waitersMutex);
                m_waiters.push_back(context.id());
            }
            m_waitersChanged.notify_one();
            const auto deadline = std::chrono::steady_clock::now() + 60s;
            while (!context.canceled()) {
                if (std::chrono::steady_clock::now() > deadline) {
                    ++m_stuckWaiters;
                    return true;
                }
                std::this_thread::sleep_for(50us);
            }
            ++m_canceledWhileRunning;
            return false;
        }
        }
        return true;
    }

    // Cancels the tasks that wait for it, and now and then a random one in whatever state it is.
    void cancelLoop() {
        std::mt19937 random(99);
        for (;;) {
            std::deque<int> waiters;
            {
                std::unique_lock lock(m_waitersMutex);
                m_waitersChanged.wait_for(lock, 1ms, [&] { return !m_waiters.empty() || !m_producing; });
                if (!m_producing && m_waiters.empty()) return;
                waiters.swap(m_waiters);
            }
            try {
                for (int id : waiters)
                    m_system.manager.cancelTaskAsync(id);
                const int index = static_cast<int>(random() % static_cast<unsigned>(m_total));
                if (const int id = m_records[index].id.load()) m_system.manager.cancelTaskAsync(id);
            } catch (const GenericException&) {
                ++m_cancelErrors;
            }
        }
    }

    // Drops what waits in the first queue. The runs it drops are recognised by the thread that
    // reports their failure: this one, inside clear().
    void clearInTheMiddle() {
        const std::thread::id self = std::this_thread::get_id();
        const auto handler = m_system.events->attach<EventTaskRunStateChanged>(
            EventTaskRunStateChanged::eventName, [&](const EventTaskRunStateChanged& event) {
                if (std::this_thread::get_id() != self || event.state() != TaskRun::Failed) return;
                const auto* task = dynamic_cast<const StressTask*>(event.taskRun()->task().get());
                std::lock_guard lock(m_droppedMutex);
                if (m_droppedByClear.insert(task->index).second) ++m_droppedCount;
            });
        m_queues[0]->clear();
        m_system.events->detach(handler);
    }

    TaskSystem m_system;
    const int m_total;
    const int m_capacity;
    std::unique_ptr<Record[]> m_records;
    std::atomic<int> m_nextFollower;
    std::array<std::shared_ptr<Queue>, queueCount> m_queues;

    std::atomic<int> m_added{0};
    std::atomic<int> m_finished{0};
    std::atomic<int> m_droppedCount{0};
    std::atomic<bool> m_producing{true};
    std::array<std::atomic<int>, queueCount> m_inFlight{};
    std::array<std::atomic<int>, queueCount> m_mostInFlight{};
    std::array<std::array<std::atomic<int>, referenceCount>, queueCount> m_referenceInFlight{};
    std::atomic<int> m_concurrencyViolations{0};
    std::atomic<int> m_referenceOverlaps{0};
    std::atomic<int> m_followersWaited{0};
    std::atomic<int> m_followersRefused{0};
    std::atomic<int> m_followersAdmittedWhileLeaderRan{0};
    std::atomic<int> m_stuckWaiters{0};
    std::atomic<int> m_cancelErrors{0};
    std::atomic<int> m_canceledBeforeStart{0};
    std::atomic<int> m_canceledWhileRunning{0};
    std::atomic<int> m_refused{0};
    std::atomic<int> m_retries{0};

    std::mutex m_droppedMutex;
    std::set<int> m_droppedByClear;
    std::mutex m_waitersMutex;
    std::condition_variable m_waitersChanged;
    std::deque<int> m_waiters;
};

TEST(TaskStress, EveryTaskFinishesOnceWithinItsLimits) {
    Stress stress(stressTaskCount());
    stress.run();
}

} // namespace
} // namespace Zel::Tasks
