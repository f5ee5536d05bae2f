#pragma once

#include <Zel/Tasks/Detail/TaskTable.h>
#include <Zel/Tasks/IManager.h>
#include <Zel/Tasks/TaskRun.h>
#include <Zel/Tasks/TaskRunInfo.h>
#include <Zel/UniqueFunction.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Zel::Async {
class EventLoop;
namespace Threads {
class Manager;
}
} // namespace Zel::Async
namespace Zel::Events {
class Manager;
}
namespace Zel::Log {
class ILog;
}

namespace Zel::Tasks {

class Queue;
class Task;

// Owns the named task queues of a process and the engine thread whose event loop does all their
// scheduling: starting runs, finishing them, retrying with back-off, and sweeping runs that finished
// long ago. Run callbacks run on threads of the Async::Threads::Manager, finished callbacks on the
// engine thread.
//
//     manager.start();
//     manager.addQueue("mail", 2);
//     auto task = std::make_shared<Task>("send", [](RunContext&) { return send(); }, nullptr);
//     manager.addTask(task, "mail", 0ms);
//     ...
//     manager.stop();
//
// One recursive lock guards the manager, its queues, their runs and the task fields the queues
// change; it is released around every user callback. A failure of a callback never leaves the worker
// or the engine: it is logged through the manager's log.
//
// stop() removes every queue (dropping what waits, asking what runs to stop), waits until the last
// run finished and the engine thread is done, and leaves no Task or TaskRun referenced by the
// manager. Neither stop() nor cancelTask() may be called from a finished callback or from a run
// callback of this manager: they would wait for themselves.
//
// Thread safety: every operation may be called from any thread.
class ZEL_API Manager : public IManager {
public:
    enum class EState : std::int32_t { Stopped = 1, Stopping = 2, Starting = 4, Running = 8 };

    static constexpr int allStates =
        TaskRun::Waiting | TaskRun::Running | TaskRun::Canceling | TaskRun::Succeeded | TaskRun::Failed;

    // Null threads: the manager makes a pool of its own. Null log or events: nothing is logged or
    // raised.
    Manager(std::shared_ptr<Async::Threads::Manager> threads, std::shared_ptr<Log::ILog> log,
            std::shared_ptr<Events::Manager> events);
    ~Manager() override;

    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    // Throws GenericException "Tasks are already running" unless stopped.
    void start();
    void stopAsync();
    void stop();
    EState state() const noexcept { return m_state.load(std::memory_order_acquire); }
    bool stopped() const noexcept { return state() == EState::Stopped; }

    // Throws GenericException "Tasks are not running" unless running, "Task queue already exists |
    // name=%s" for a name in use, ArgumentException for maxThreads below 1.
    std::shared_ptr<Queue> addQueue(const std::string& name, int maxThreads);
    // With throwIfMissing, an unknown name throws GenericException "Task queue not found | name=%s";
    // without, it returns an empty pointer.
    std::shared_ptr<Queue> queue(const std::string& name, bool throwIfMissing = true) const;
    std::vector<std::shared_ptr<Queue>> queues() const;

    TaskAddResult addTask(std::shared_ptr<Task> task, const std::string& queueName,
                          std::chrono::milliseconds delay) override;
    // See Queue::cancelTaskAsync. An id the manager does not know (never added, or swept) counts as
    // canceled.
    bool cancelTaskAsync(int id) override;
    // Repeats cancelTaskAsync until the run has left the queue's waiting and running lists.
    void cancelTask(int id) override;

    TaskRunInfo getTaskRunInfo(int id) const;
    // Every queue with its runs: [queue JSON, ...] in the order of the queue names.
    std::string tasksJson() const;
    // The current runs of the tasks tagged `tag` whose state is in `stateMask`, by task id:
    // [run JSON, ...].
    std::string tasksByTagJson(int tag, int stateMask = allStates) const;
    // Tasks the manager knows by id: those with a run that was not swept yet.
    std::size_t taskCount() const;

    // Finished runs are dropped, every `interval`, once they finished more than `keepFinished` ago
    // (5 s and 30 s unless changed). Takes effect at the next start().
    void setHousekeeping(std::chrono::milliseconds interval, std::chrono::milliseconds keepFinished);

private:
    friend class Queue;
    friend class RunContextImpl;

    using Lock = std::unique_lock<std::recursive_mutex>;

    std::recursive_mutex& mutex() const noexcept { return m_mutex; }
    void setState(EState state);
    void engine();
    void scheduleSweep();
    void sweep();
    void post(UniqueFunction<void()> function, std::chrono::milliseconds delay);
    bool onEngineThread() const;
    // The last step of every thread the manager started: after it the thread no longer touches the
    // manager, so stop() may return.
    void threadLeft() noexcept { m_threadsInside.fetch_sub(1, std::memory_order_release); }

    std::atomic<EState> m_state{EState::Stopped};
    mutable std::recursive_mutex m_mutex;
    std::condition_variable_any m_stateChanged;
    std::map<std::string, std::shared_ptr<Queue>> m_queues;
    std::unique_ptr<Async::EventLoop> m_loop;
    int m_nextTaskId = 1;
    std::shared_ptr<Log::ILog> m_log;
    // Every add enters the task once, under its id and tag, until its last run is swept.
    Detail::TaskTable m_tasks;
    std::shared_ptr<Async::Threads::Manager> m_threads;
    std::shared_ptr<Events::Manager> m_events;

    std::atomic<int> m_threadsInside{0};
    std::thread::id m_engineThread;
    std::chrono::milliseconds m_sweepInterval{5000};
    std::chrono::milliseconds m_keepFinished{30000};
};

} // namespace Zel::Tasks
