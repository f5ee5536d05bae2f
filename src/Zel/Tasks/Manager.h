#pragma once

#include <Zel/Tasks/IClock.h>
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

namespace Detail {
class Engine;
class EngineMutex;
} // namespace Detail

// Owns the named task queues of a process, the engine thread whose event loop keeps time for them
// (delayed starts, retries with back-off, finished callbacks, sweeping runs that finished long ago),
// and one pool of worker threads that every queue shares.
//
//     manager.start();
//     manager.addQueue("mail", 2);
//     auto task = std::make_shared<Task>("send", [](RunContext&) { return send(); }, nullptr);
//     manager.addTask(task, "mail", 0ms);
//     ...
//     manager.stop();
//
// Workers. The pool has as many workers as the machine has processors unless setWorkerPool() says
// otherwise; a queue's maxThreads limits how many of its runs execute at once, it does not reserve
// threads. Queues take turns, so a queue with a long backlog does not hold up the others. When work
// waits and every worker has been busy without finishing anything for a while (runs that block on
// I/O or on each other), the pool grows by a worker at a time, up to the sum of the queues'
// maxThreads, and shrinks back once the extra workers are idle.
//
// One recursive lock guards the manager, its queues, their runs and the task fields the queues
// change; it is released around every user callback and around the destruction of tasks. A failure
// of a callback never leaves the worker or the engine: it is logged through the manager's log.
//
// stop() removes every queue (dropping what waits, asking what runs to stop) and returns only once
// the engine thread and every worker have let go of every task, run and callback they held, and
// their threads are idle again in the thread pool: what the tasks use may be freed right after.
// Neither stop() nor cancelTask() may be called from a finished callback or from a run callback of
// this manager: they would wait for themselves.
//
// Thread safety: every operation may be called from any thread.
class ZEL_API Manager : public IManager {
public:
    enum class State : std::int32_t { Stopped = 1, Stopping = 2, Starting = 4, Running = 8 };
    // The earlier name of State.
    using EState = State;

    // What queue() does when no queue has the name.
    enum class IfMissing { Throw, ReturnEmpty };

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
    State state() const noexcept;
    bool stopped() const noexcept { return state() == State::Stopped; }

    // Throws GenericException "Tasks are not running" unless running, "Task queue already exists |
    // name=%s" for a name in use, ArgumentException for maxThreads below 1.
    std::shared_ptr<Queue> addQueue(const std::string& name, int maxThreads);
    // IfMissing::Throw makes an unknown name throw GenericException "Task queue not found | name=%s".
    std::shared_ptr<Queue> queue(const std::string& name, IfMissing ifMissing = IfMissing::Throw) const;
    // As above; true means IfMissing::Throw.
    std::shared_ptr<Queue> queue(const std::string& name, bool throwIfMissing) const {
        return queue(name, throwIfMissing ? IfMissing::Throw : IfMissing::ReturnEmpty);
    }
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

    // --- settings, which take effect at the next start() ------------------------------------------
    // Finished runs are dropped, every `interval`, once they finished more than `keepFinished` ago
    // (5 s and 30 s unless changed).
    void setHousekeeping(std::chrono::milliseconds interval, std::chrono::milliseconds keepFinished);
    // `workers` threads run the queues' runs (0: one per processor, the default); the pool grows
    // when every worker has been busy for `growAfter` without finishing a run (50 ms by default).
    // Throws ArgumentException for a negative count.
    void setWorkerPool(int workers, std::chrono::milliseconds growAfter = std::chrono::milliseconds(50));
    // The clock that times delays, retries and housekeeping (the steady clock by default). Only
    // while stopped; throws the invalid-operation exception otherwise.
    void setClock(std::shared_ptr<IClock> clock);
    // Workers alive now.
    int workerCount() const;

private:
    friend class Queue;
    friend class RunContextImpl;

    Detail::EngineMutex& mutex() const noexcept;

    std::shared_ptr<Detail::Engine> m_engine;
};

} // namespace Zel::Tasks
