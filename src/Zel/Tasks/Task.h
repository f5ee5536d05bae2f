#pragma once

#include <Zel/Export.h>
#include <Zel/Tasks/FinishContext.h>
#include <Zel/Tasks/RunContext.h>
#include <Zel/Tasks/TaskOptions.h>
#include <Zel/UniqueFunction.h>
#include <atomic>
#include <memory>
#include <string>
#include <string_view>

namespace Zel::Tasks {

class Queue;
class TaskRun;

// A named unit of background work: a run callback that returns true for success, an optional
// finished callback called once when the task is over (after its last retry, or when it is canceled
// before it starts), and the options that govern retries and de-duplication.
//
// Shared through std::shared_ptr: a queue keeps the task while it waits, runs and for a while after it
// finished. The queue destroys the run callback once the task is over and the finished callback right
// after calling it, so whatever they hold is released early.
//
// Thread safety: configure the task (options, reference) before adding it. The counters and id may be
// read from any thread; currentRun(), queue() and toJson() take the owning manager's lock.
class ZEL_API Task {
public:
    using RunCallback = UniqueFunction<bool(RunContext&)>;
    using FinishedCallback = UniqueFunction<void(FinishContext&)>;

    Task(const std::string& name, RunCallback&& run, FinishedCallback&& finished = nullptr);
    virtual ~Task();

    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    const std::string& name() const noexcept { return m_name; }
    // 0 until the task is added; each add gives it a new id.
    int id() const noexcept { return m_id.load(std::memory_order_relaxed); }

    // Free for the run callback's owner to report how far it got; reset to 0 by each retry.
    int progress() const noexcept { return m_progress.load(std::memory_order_relaxed); }
    void setProgress(int progress) noexcept { m_progress.store(progress, std::memory_order_relaxed); }
    int retried() const noexcept { return m_retried.load(std::memory_order_relaxed); }
    int addCount() const noexcept { return m_addCount.load(std::memory_order_relaxed); }

    const TaskOptions& options() const noexcept { return m_options; }
    Task& setOptions(const TaskOptions& options);
    Task& setReference(std::string_view reference);

    RunCallback& runCallback() noexcept { return m_runCallback; }
    FinishedCallback& finishedCallback() noexcept { return m_finishedCallback; }

    // The most recent run; empty before the task is added and once its runs were swept.
    std::shared_ptr<TaskRun> currentRun() const;
    // The queue the task was last added to; empty when that queue is gone.
    std::shared_ptr<Queue> queue() const;

    // {"id":..,"name":..,"queue":..,"progress":..,"retried":..,"options":{"logContext":..,
    // "reference":..,"tag":..}}; "queue" only while the queue exists.
    std::string toJson() const;

private:
    friend class Manager;
    friend class Queue;

    // The operations its queue performs on the task, under the manager's lock.
    void enterQueue(int id, std::shared_ptr<TaskRun> run, std::weak_ptr<Queue> queue);
    // The first add of a task may skip the manager's lock: nothing but the adding thread knows of it
    // yet. True for the one caller that claims it; the run is admitted later (admitRun).
    bool claimFirstAdd() noexcept {
        int never = 0;
        return m_addCount.compare_exchange_strong(never, 1, std::memory_order_relaxed);
    }
    void enterIntake(int id, std::weak_ptr<Queue> queue);
    void admitRun(std::shared_ptr<TaskRun> run) noexcept { m_currentRun = std::move(run); }
    void startRetry(std::shared_ptr<TaskRun> run);
    // Drops the current run when it is `run`; returns whether it was.
    bool forgetRun(const TaskRun& run) noexcept;
    const std::shared_ptr<TaskRun>& currentRunLocked() const noexcept { return m_currentRun; }
    std::shared_ptr<Queue> queueLocked() const noexcept { return m_queue.lock(); }

    std::atomic<int> m_id{0};
    std::string m_name;
    std::atomic<int> m_progress{0};
    std::atomic<int> m_retried{0};
    std::atomic<int> m_addCount{0};
    std::shared_ptr<TaskRun> m_currentRun; // guarded by the manager's lock
    std::weak_ptr<Queue> m_queue;          // guarded by the manager's lock
    TaskOptions m_options;
    RunCallback m_runCallback;
    FinishedCallback m_finishedCallback;
};

} // namespace Zel::Tasks
