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

// A named queue of tasks of one Manager: runs start in the order of their start time (first in,
// first out among equal times), at most maxThreads at once, and never two with the same reference
// at once. Created by Manager::addQueue only.
//
// The manager's event loop starts runs and finishes them (retry, finished callback). A worker whose
// run ended goes straight on with the next due run of the queue when the ended run's task has no
// finished callback; otherwise that callback has returned before the next run takes the place.
//
// The queue has no lock of its own: its manager's lock guards it, and is released around every user
// callback. A Queue must not be used after its Manager is destroyed.
//
// Thread safety: every operation may be called from any thread. remove() waits for the runs in
// progress, except when called from the manager's event loop or from a run of this queue, where it
// cannot wait for itself and behaves as removeAsync().
class ZEL_API Queue : public std::enable_shared_from_this<Queue> {
    class Key {
        friend class Manager;
        Key() = default;
    };

public:
    enum class State : std::int32_t { Active = 0, Removing = 1, Removed = 2 };

    Queue(Key, Manager& manager, std::string name, int maxThreads);
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

    // True when nothing waits and nothing runs.
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
    // to be done by the event loop.
    std::string toJson() const;

private:
    friend class Manager;
    friend class Task;

    using Lock = std::unique_lock<std::recursive_mutex>;
    using RunPtr = std::shared_ptr<TaskRun>;
    using Waiting = std::pmr::multimap<TaskRun::TimePoint, RunPtr>;
    // Run callbacks of tasks that are over, to be destroyed once the lock is released.
    using ReleasedCallbacks = std::vector<UniqueFunction<bool(RunContext&)>>;

    std::recursive_mutex& mutex() const noexcept;
    // The queue whose run callback the calling thread executes; null on other threads.
    static const Queue* runningOnThisThread() noexcept;

    bool cancelTaskAsync(Lock& lock, const std::shared_ptr<Task>& task, ReleasedCallbacks& released);
    void postDispatch(std::chrono::milliseconds delay);
    void doTasks(Lock& lock);
    // Moves the first due run that no running reference holds back, searching from `from`, to the
    // running list; null when there is none.
    RunPtr takeNextDue(TaskRun::TimePoint now, Waiting::iterator& from);
    void startWorker(const RunPtr& run);
    // The body of a worker: runs `run`, then whatever takeOver() hands it.
    void executeTaskRuns(RunPtr run);
    bool executeTaskRun(TaskRun& run);
    RunPtr takeOver(Lock& lock, TaskRun& finished);
    // Under the lock: the run's finish is done on the event loop, together with others that ended
    // meanwhile.
    void queueFinish(const RunPtr& run, bool succeeded);
    void finishQueuedRuns();
    void finishTaskRun(Lock& lock, const RunPtr& run, bool succeeded, ReleasedCallbacks& released);
    bool retryTask(const RunPtr& failedRun, TaskRun::TimePoint now);
    void callFinishedCallback(Lock& lock, Task& task, bool succeeded, ReleasedCallbacks& released);
    void finishRemoval(Lock& lock);
    void signalRemoved();
    void raiseStateChanged(const RunPtr& run);
    void insertWaiting(RunPtr run);
    void eraseWaiting(const RunPtr& run);
    void waitingShrunk() noexcept;
    void eraseRunning(TaskRun& run);
    void dropReference(std::unordered_map<std::string, std::shared_ptr<Task>>& references, const Task& task);
    // Housekeeping on the event loop, under the lock. What they drop goes to `garbage`, to be destroyed
    // once the lock is released.
    void sweep(TaskRun::TimePoint finishedBefore, std::vector<RunPtr>& garbage);
    // `forgetTasks` false: the manager drops its whole task table itself.
    void releaseAll(std::vector<RunPtr>& garbage, bool forgetTasks = true);

    std::string m_name;
    int m_maxThreads;
    int m_running = 0;
    Manager& m_manager;
    std::shared_ptr<Async::Threads::Manager> m_threads;
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

    bool m_dispatchPosted = false;  // one undelayed dispatch pending on the loop serves every add
    std::vector<RunPtr> m_starting; // reused by doTasks
    struct Finishing {
        RunPtr run;
        bool succeeded;
    };
    std::vector<Finishing> m_finishing; // runs that ended, waiting for finishQueuedRuns
    std::string m_emptyEventName;
};

} // namespace Zel::Tasks
