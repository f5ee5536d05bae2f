#pragma once

#include <Zel/Export.h>
#include <Zel/Tasks/TaskAddResult.h>
#include <Zel/Tasks/TaskRun.h>
#include <Zel/UniqueFunction.h>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <memory_resource>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace Zel::Async::Threads {
class Manager;
}
namespace Zel::Events {
class Manager;
}
namespace Zel::Log {
class ILog;
}

namespace Zel::Tasks {

class Manager;
class RunContext;
class Task;

namespace Detail {
class Engine;
class EngineMutex;
struct Garbage;
} // namespace Detail

// A named queue of tasks of one Manager: runs start in the order of their start time (first in,
// first out among equal times), at most maxThreads at once, and never two with the same reference
// at once. Created by Manager::addQueue only.
//
// The queue owns no threads: the workers of its manager, shared by every queue, start its runs in
// turn with the other queues' (see Manager). A run whose task has no finished callback is finished
// by the worker that executed it, which then goes on with the next run offered; where there is a
// finished callback, the manager's engine thread calls it, and the run keeps its place among the
// maxThreads until the callback returned.
//
// The queue has no lock of its own: its manager's lock guards it (the convention is written where
// that lock is declared, in Detail::Engine), and is released around every user callback. The common
// add, of a new task without a reference to start now, does not take that lock: the run enters a
// lock-free intake that the workers empty in adding order. A Queue must
// not be used after its Manager is destroyed.
//
// Thread safety: every operation may be called from any thread. remove() waits for the runs in
// progress, except when called from the manager's engine thread or from a run of this queue, where it
// cannot wait for itself and behaves as removeAsync().
class ZEL_API Queue : public std::enable_shared_from_this<Queue> {
    class Key {
        friend class Detail::Engine;
        Key() = default;
    };

public:
    enum class State : std::int32_t { Active = 0, Removing = 1, Removed = 2 };

    Queue(Key, Manager& manager, Detail::Engine& engine, std::string name, int maxThreads);
    ~Queue();

    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    const std::string& name() const noexcept { return m_name; }
    int maxThreads() const noexcept { return m_maxThreads; }
    State state() const noexcept { return m_state.load(std::memory_order_acquire); }
    // Places taken by runs on worker threads: at most maxThreads.
    int running() const;

    // Adds the task to start no earlier than `delay` from now. When the task's reference is already
    // waiting here (or, with Uniqueness::WaitingOrRunning, running), nothing is added and the result
    // carries that task's id with existingTask true. Throws GenericException "Queue is not running |
    // state=%d" once removal began.
    TaskAddResult addTask(std::shared_ptr<Task> task,
                          std::chrono::milliseconds delay = std::chrono::milliseconds(0));

    // A waiting run is failed at once, its finished callback called with false, and the result is
    // true. A running run is asked to stop (its callback sees canceled()) and the result is false;
    // call again until it is true. Throws GenericException "Cannot cancel the task because it's not
    // in the queue. | queue=%s | taskId=%d" for a task that is not in this queue.
    bool cancelTaskAsync(const std::shared_ptr<Task>& task);

    // True when nothing waits and nothing runs, a finished callback included.
    bool empty() const;
    // Drops every waiting run (as Failed, without calling finished callbacks) and asks every running
    // one to stop.
    void clear();
    // Clears the queue and, once nothing runs any more, takes it out of its manager. The queue then
    // refuses tasks.
    void removeAsync();
    void remove();

    // {"name":..,"state":..,"maxThreads":..,"runningCount":..,"waiting":[run..],"running":[run..],
    // "finished":[run..]}; "running" also lists runs whose callback returned and whose finish is still
    // to be done by the engine thread.
    std::string toJson() const;

private:
    friend class Manager;
    friend class Task;
    friend class Detail::Engine;

    using Guard = std::unique_lock<Detail::EngineMutex>;
    using RunPtr = std::shared_ptr<TaskRun>;
    using Waiting = std::pmr::multimap<TaskRun::TimePoint, RunPtr>;

    Detail::EngineMutex& mutex() const noexcept;
    // The queue whose run callback the calling thread executes; null on other threads.
    static const Queue* runningOnThisThread() noexcept;

    // --- what the manager and the engine ask of the queue, under the lock -------------------------
    bool cancelTaskAsync(Guard& guard, const std::shared_ptr<Task>& task);
    // Called by a worker that took this queue's offer: starts the first due run, executes it without
    // the lock and finishes it (or hands the finish to the engine thread). What the previous run left
    // behind in `garbage` is destroyed while the lock is released.
    void runNext(Guard& guard, Detail::Garbage& garbage);
    // Drops runs that finished before `finishedBefore`, and forgets their tasks.
    void sweep(Guard& guard, TaskRun::TimePoint finishedBefore, Detail::Garbage& garbage);
    // The manager stopped: lets go of every run without forgetting tasks one by one (the manager
    // drops its whole table) and marks the queue removed.
    void abandon(Guard& guard, Detail::Garbage& garbage);

    // --- the intake ---------------------------------------------------------------------------------
    // Who keeps watching the intake of a queue that has nothing to start: a worker that spins
    // (IfSpinning), or also the calling worker, which looks for work next (ByCaller).
    enum class Watch { IfSpinning, ByCaller };
    // An add that needs no lock: pushes the run to the intake and, when nobody watches it, takes the
    // lock to admit it.
    TaskAddResult addToIntake(std::shared_ptr<Task> task, TaskRun::TimePoint runAt);
    // Moves the intake's runs, oldest first, into the waiting list. In a removed queue the runs go to
    // `garbage`, and stay in the intake without one.
    void admitIntake(Guard& guard, Detail::Garbage* garbage);
    // Stops watching the intake when nothing else will look at it soon: the next add then takes the
    // lock. Admits and offers what arrived meanwhile.
    void keepWatch(Guard& guard, Watch watch);

    // --- scheduling ---------------------------------------------------------------------------------
    // Admits the intake and, when a run may start now, offers the queue to the workers (once; a
    // worker clears the offer).
    void offerToWorkers(Guard& guard, Watch watch = Watch::IfSpinning);
    // Wakes the queue when the first delayed run becomes due.
    void scheduleWakeUp(Guard& guard, TaskRun::TimePoint at);
    bool canStartNow() const;
    // Moves the first due run that no running reference holds back to the running list; null when
    // there is none.
    RunPtr takeNextDue();
    bool execute(TaskRun& run);
    void queueFinish(Guard& guard, const RunPtr& run, bool succeeded);
    void finishQueuedRuns();
    void finishTaskRun(Guard& guard, const RunPtr& run, bool succeeded, Detail::Garbage& garbage,
                       Watch watch = Watch::IfSpinning);
    bool retryTask(Guard& guard, const RunPtr& failedRun, TaskRun::TimePoint now);
    // Destroys the task's run callback and calls its finished callback, both without the lock.
    void callFinishedCallback(Guard& guard, Task& task, bool succeeded, Detail::Garbage& garbage);
    void finishRemoval(Guard& guard);
    void signalRemoved();
    void raiseStateChanged(const RunPtr& run);
    void insertWaiting(RunPtr run);
    void eraseWaiting(const RunPtr& run);
    void waitingShrunk() noexcept;
    void eraseRunning(TaskRun& run);
    void dropReference(std::unordered_map<std::string, std::shared_ptr<Task>>& references, const Task& task);
    // Empties every list into `garbage`; `forgetTasks` also takes the tasks out of the manager's table.
    void releaseAll(Guard& guard, Detail::Garbage& garbage, bool forgetTasks);

    std::string m_name;
    int m_maxThreads;
    int m_running = 0;
    Manager& m_manager;
    Detail::Engine& m_engine;
    std::atomic<State> m_state{State::Active};
    struct RemovedSignal {
        std::mutex mutex;
        std::condition_variable changed;
        bool set = false;
    } m_removed;
    std::shared_ptr<Log::ILog> m_log;
    std::shared_ptr<Events::Manager> m_events;

    // The waiting list's nodes come from a pool of the queue's own (the lock guards it): a burst of
    // adds then costs no allocation per run for its place in the list. The pool's memory goes back
    // whenever the list empties.
    std::pmr::unsynchronized_pool_resource m_waitingPool;
    Waiting m_waiting{&m_waitingPool}; // by start time; equal times in adding order
    std::vector<RunPtr> m_finished;
    // Runs handed to workers whose finish was not processed yet, in no particular order; each knows
    // its index.
    std::vector<RunPtr> m_runningRuns;
    std::unordered_map<std::string, std::shared_ptr<Task>> m_waitingReferences;
    std::unordered_map<std::string, std::shared_ptr<Task>> m_runningReferences;

    // Undelayed adds of new tasks without a reference skip the lock: they push their run to this
    // stack (the newest first), and the lock's holders admit them into m_waiting. m_intakeWatched
    // tells an add whether it must take the lock to have its run seen. It is true only while the
    // intake is sure to be looked at soon: the queue is offered, or all its places are taken (a
    // finishing run looks), or it is on the engine's watch list while a worker spins. Whoever sets it
    // false looks at the intake once more afterwards, so no run is left unseen.
    std::atomic<TaskRun*> m_intake{nullptr};
    std::atomic<bool> m_intakeWatched{false};
    mutable std::atomic<bool> m_watchListed{false}; // on the engine's watch list; written under the lock

    bool m_offered = false;                                    // waiting in the engine's offers for a worker
    TaskRun::TimePoint m_wakeUpAt = TaskRun::TimePoint::max(); // the earliest timer set for a delayed run
    struct Finishing {
        RunPtr run;
        bool succeeded;
    };
    std::vector<Finishing> m_finishing; // runs that ended, waiting for finishQueuedRuns
    std::string m_emptyEventName;
};

} // namespace Zel::Tasks
