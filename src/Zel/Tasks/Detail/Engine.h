#pragma once

#include <Zel/Async/Threads/Manager.h>
#include <Zel/Tasks/Detail/EngineMutex.h>
#include <Zel/Tasks/Detail/TaskTable.h>
#include <Zel/Tasks/IClock.h>
#include <Zel/Tasks/Task.h>
#include <Zel/Tasks/TaskRun.h>
#include <Zel/UniqueFunction.h>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Zel::Async {
class EventLoop;
}
namespace Zel::Events {
class Manager;
}
namespace Zel::Log {
class ILog;
}

namespace Zel::Tasks {
class Manager;
class Queue;
} // namespace Zel::Tasks

namespace Zel::Tasks::Detail {

// What changes under the lock let go of, destroyed only once the lock is released: tasks and their
// callbacks may be user types whose destructors do anything, including calling back into the
// manager.
struct Garbage {
    std::vector<std::shared_ptr<TaskRun>> runs;
    std::vector<Task::RunCallback> callbacks;
    std::vector<std::shared_ptr<Task>> tasks;

    bool empty() const noexcept { return runs.empty() && callbacks.empty() && tasks.empty(); }
    // Keeps the vectors' memory: a worker empties its garbage once per run.
    void clear() noexcept {
        runs.clear();
        callbacks.clear();
        tasks.clear();
    }
};

// Threads are named after the code they serve: the workers after the queue's, the engine thread
// after the manager's.
const std::string& workerThreadName();
const std::string& engineThreadName();

// The scheduling state of one task manager: its queues, the ids and the table of known tasks, the
// event loop of the engine thread (timers, finished callbacks, housekeeping), and the one pool of
// workers that every queue of the manager shares.
//
// Locking convention. One recursive mutex, mutex(), guards every field of the Engine, every field
// of every Queue of the manager, and the scheduling fields of Task and TaskRun (a task's current run
// and queue, a run's place in its queue's lists). A function that takes a `Guard&` must be called
// with that lock held by the calling thread; it may release it for a while and holds it again when
// it returns. The lock is released around every user callback and around the destruction of
// anything a user may own (see Garbage). It is recursive only because event handlers, raised under
// it, may call back into the manager. No other lock is taken while it is held, except the
// short-lived internal ones of the thread pool, the event loop and the clock.
//
// Outside the lock, by design: the task id counter, each queue's intake (the lock-free stack that
// the common add pushes to, with its watch flag; see Queue) and the arrival counter that spinning
// workers watch for it. A run in an intake is known to no one but its queue until a holder of the
// lock admits it; every lookup admits first.
//
// Workers. A queue that has a run it may start now (its start time has come, it has a free place
// below maxThreads) offers itself with handToWorker(); an idle worker takes the first queue offered,
// starts one run of it and, when the queue could start another, offers it again at the back. So
// queues take turns: one with a long backlog does not keep the others waiting. The pool has `base`
// workers; when work waits and no worker finished anything for `growAfter`, every worker is taken
// by runs that block, and the pool grows by one (up to the sum of the queues' maxThreads), so that
// blocking runs cannot starve or deadlock the rest. Workers beyond `base` leave once idle.
//
// Thread safety: every operation may be called from any thread unless it says otherwise.
class Engine : public std::enable_shared_from_this<Engine> {
public:
    using Guard = std::unique_lock<EngineMutex>;
    using TimePoint = TaskRun::TimePoint;
    using QueuePtr = std::shared_ptr<Queue>;

    enum class State : std::int32_t { Stopped = 1, Stopping = 2, Starting = 4, Running = 8 };

    Engine(std::shared_ptr<Async::Threads::Manager> threads, std::shared_ptr<Log::ILog> log,
           std::shared_ptr<Events::Manager> events);
    ~Engine();

    EngineMutex& mutex() const noexcept { return m_mutex; }
    const std::shared_ptr<Log::ILog>& log() const noexcept { return m_log; }
    const std::shared_ptr<Events::Manager>& events() const noexcept { return m_events; }

    // --- life cycle -----------------------------------------------------------------------------
    State state() const noexcept { return m_state.load(std::memory_order_acquire); }
    // Starts the engine thread and waits until it runs (or failed, or was stopped meanwhile).
    void start(Guard& guard);
    // Removes every queue; the last one to drain stops the event loop.
    void stopAsync(Guard& guard);
    // Waits until the engine thread and every worker have let go of everything they held and their
    // threads count as idle in the thread pool. Not from the engine thread or a worker.
    void waitStopped(Guard& guard);
    bool onEngineThread() const noexcept;
    // True on a worker of this engine.
    bool onWorker() const noexcept;

    // --- configuration, read at the next start() ------------------------------------------------
    void setHousekeeping(Guard& guard, std::chrono::milliseconds interval, std::chrono::milliseconds keep);
    void setWorkerPool(Guard& guard, int base, std::chrono::milliseconds growAfter);
    void setClock(Guard& guard, std::shared_ptr<IClock> clock);
    int workerCount(Guard&) const noexcept { return m_workers; }

    // --- time -----------------------------------------------------------------------------------
    TimePoint now() const {
        if (m_clock) return m_clock->now();
        const TimePoint current = TaskRun::Clock::now();
        m_seen.store(current.time_since_epoch().count(), std::memory_order_relaxed);
        return current;
    }
    // The latest time any thread read from the steady clock: never later than now, and a few
    // microseconds behind it while tasks come and go. A clock given with setClock is read instead.
    TimePoint recent() const {
        if (m_clock) return m_clock->now();
        return TimePoint(TimePoint::duration(m_seen.load(std::memory_order_relaxed)));
    }
    // Whether a run due at `at` may start, by the whole milliseconds delays are given in. Most runs
    // are due by the time recent() says, and then the clock, read several times per task
    // otherwise, is not read at all.
    bool isDue(TimePoint at) const {
        constexpr std::chrono::milliseconds resolution{1};
        if (!m_clock && at - recent() < resolution) return true;
        return at - now() < resolution;
    }
    // Runs `function` on the engine thread once the clock reached `at`; without the lock.
    void callAt(Guard& guard, TimePoint at, UniqueFunction<void()> function);
    // Runs `function` on the engine thread as soon as it can; without the lock.
    void post(Guard& guard, UniqueFunction<void()> function);

    // --- queues -----------------------------------------------------------------------------------
    // Throws as Manager::addQueue documents.
    QueuePtr addQueue(Guard& guard, Manager& manager, const std::string& name, int maxThreads);
    QueuePtr findQueue(Guard& guard, const std::string& name) const;
    std::vector<QueuePtr> queues(Guard& guard) const;
    // The queue's removal is complete: it leaves the manager, and the last one to leave a stopping
    // manager stops the event loop.
    void forgetQueue(Guard& guard, const Queue& queue);
    // The queue has a run it may start now: a worker will come for it.
    void handToWorker(Guard& guard, QueuePtr queue);
    // Withdraws the queue's offer when it is the only one: no other queue waits for a worker, so the
    // worker that finished a run of it may go on with the next without a turn through the offers.
    bool takeBackOffer(Guard& guard, const Queue& queue);
    // The queue has nothing to start, and a worker is to watch its intake for adds that skip the lock:
    // one that spins waiting for work, or the calling worker when `byCaller` (it looks for work
    // next). False when no worker will: the queue then stops watching.
    bool watch(Guard& guard, Queue& queue, bool byCaller);
    // An add went to the intake of a watched queue.
    void signalArrival() noexcept { m_arrivals.fetch_add(1, std::memory_order_seq_cst); }
    // Admits what every queue's intake holds: for lookups of tasks by id or tag.
    void admitIntakes(Guard& guard);
    // A worker finished executing a run (whatever its outcome): the pool made progress.
    void runExecuted(Guard&) noexcept { ++m_executed; }

    // --- tasks ------------------------------------------------------------------------------------
    // Needs no lock: an add to a queue's intake takes its id without it.
    int allocateTaskId() noexcept { return m_nextTaskId.fetch_add(1, std::memory_order_relaxed); }
    void registerTask(Guard& guard, int id, int tag, std::shared_ptr<Task> task);
    void forgetTask(Guard& guard, int id, const Task& task);
    // Both admit every queue's intake first: a task is entered in the table when its run is admitted.
    const std::shared_ptr<Task>* findTask(Guard& guard, int id);
    const TaskTable& tasks(Guard& guard) {
        admitIntakes(guard);
        return m_tasks;
    }

private:
    struct ParkedWorker {
        std::condition_variable_any wake;
        bool woken = false;
    };

    void setState(State state);
    void engineMain();
    void shutDown(Guard& guard);
    void startWorker(Guard& guard);
    void workerMain();
    // The next queue offered to workers; empty when the calling worker is to leave.
    QueuePtr takeOffer(Guard& guard, bool extra, Garbage& garbage);
    // Offers the watched queues whose intake received runs.
    void lookAtWatched(Guard& guard);
    // No worker spins any more: the watched queues stop watching (their next add takes the lock).
    void releaseWatched(Guard& guard);
    void wakeOne(Guard& guard);
    void watchForStall(Guard& guard);
    void checkStall(std::uint64_t executedBefore);
    void armTimer(Guard& guard);
    void runDueTimers();
    void sweep();
    int threadLimit(Guard& guard) const noexcept;

    mutable EngineMutex m_mutex;
    std::condition_variable_any m_stateChanged;
    std::atomic<State> m_state{State::Stopped};
    std::shared_ptr<Async::Threads::Manager> m_threads;
    std::shared_ptr<Log::ILog> m_log;
    std::shared_ptr<Events::Manager> m_events;
    std::shared_ptr<IClock> m_clock; // null: the steady clock
    mutable std::atomic<TimePoint::rep> m_seen{0};

    std::map<std::string, QueuePtr> m_queues;
    std::atomic<int> m_nextTaskId{1};
    // Every add enters the task once, under its id and tag, until its last run is swept.
    TaskTable m_tasks;

    // The engine thread and its loop.
    std::unique_ptr<Async::EventLoop> m_loop;
    std::thread::id m_engineThread;
    Async::Threads::Manager::Completion m_engineDone;
    std::multimap<TimePoint, UniqueFunction<void()>> m_timers;
    TimePoint m_timerArmedFor = TimePoint::max();
    std::chrono::milliseconds m_sweepInterval{5000};
    std::chrono::milliseconds m_keepFinished{30000};

    // The workers.
    int m_baseWorkers = 0; // 0: as many as the machine has processors
    std::chrono::milliseconds m_growAfter{50};
    int m_workers = 0; // alive now
    std::vector<Async::Threads::Manager::Completion> m_workersDone;
    std::deque<QueuePtr> m_offers;
    std::vector<ParkedWorker*> m_parked; // the most recently parked last
    // Idle workers that watch for offers a little while before they park; offers they can take wake
    // no parked worker. The atomic mirrors m_offers.size() for them, who watch without the lock.
    int m_spinning = 0;
    std::atomic<std::size_t> m_offerCount{0};
    // Queues without work whose intakes the spinning workers watch, and the count of adds to them.
    std::vector<QueuePtr> m_watched;
    std::atomic<std::uint64_t> m_arrivals{0};
    bool m_workersLeave = false;
    bool m_stallWatched = false;
    std::uint64_t m_executed = 0;
};

} // namespace Zel::Tasks::Detail
