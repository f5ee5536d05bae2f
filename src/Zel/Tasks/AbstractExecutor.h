#pragma once

#include <Zel/Export.h>
#include <Zel/Tasks/Task.h>
#include <Zel/Tasks/TaskOptions.h>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace Zel::Tasks {

class IManager;

// Repeatedly creates tasks for one piece of work and hands them to an IManager. Configure it (queue,
// task, initial delay, options), then start() it; stop() ends the series and cancels the task added
// last. Configuration is allowed only while the executor is not started; otherwise it throws
// InvalidOperationException.
//
// Every task gets the configured name and options; its run callback calls the executor's run
// callback, its finished callback the executor's finished callback (after whatever the subclass does
// when a run is over, such as scheduling the next one, which happens on the manager's event loop).
// A task in flight keeps the callbacks it was created with, so reconfiguring after stop() is safe.
//
// Destroying an executor stops it and waits for a scheduling step in progress on another thread; a
// subclass of your own must call shutdown() first thing in its destructor.
//
// Thread safety: every operation may be called from any thread; one mutex guards the state and the
// configuration and is never held while the IManager is called.
class ZEL_API AbstractExecutor {
public:
    enum class State : std::int32_t { Configurable = 0, Stopping = 1, Started = 2 };

    virtual ~AbstractExecutor();

    AbstractExecutor(const AbstractExecutor&) = delete;
    AbstractExecutor& operator=(const AbstractExecutor&) = delete;

    AbstractExecutor& setQueue(const std::string& queueName);
    AbstractExecutor& setTask(std::string_view name, Task::RunCallback run,
                              Task::FinishedCallback finished = nullptr);
    // Before the first run of executors that start on their own.
    AbstractExecutor& delay(std::chrono::milliseconds initialDelay);
    AbstractExecutor& setTaskOptions(const TaskOptions& options);

    // Throws GenericException "Abstract executor can not be started." unless configurable.
    void start();
    // Does nothing unless started.
    void stop();

    State state() const;
    // The id of the task added last; 0 before any.
    int lastTaskId() const;

protected:
    explicit AbstractExecutor(IManager& manager);

    // Adds one task that starts after `runDelay`.
    virtual void schedule(std::chrono::milliseconds runDelay) = 0;
    // Called by start(), after the state became Started and without the lock.
    virtual void started();
    // When the next run is due after one ended; 0 unless a subclass repeats.
    virtual std::chrono::milliseconds nextRunDelay();

    enum class Repeat { No, Yes };
    // The common body of schedule(): create the task and add it. With Repeat::Yes the task's finished
    // callback schedules the next run after nextRunDelay() while the executor stays started.
    void addRun(std::chrono::milliseconds runDelay, Repeat repeat);

    std::chrono::milliseconds initialDelay() const;
    // For subclass setters that hold m_mutex already.
    State stateLocked() const noexcept { return m_state; }
    // Detaches the executor from the tasks in flight; idempotent.
    void shutdown() noexcept;

    mutable std::mutex m_mutex;

private:
    struct Callbacks;
    struct Link;

    IManager& m_manager;
    std::string m_queueName;
    std::string m_taskName;
    std::shared_ptr<Callbacks> m_callbacks;
    std::chrono::milliseconds m_delay{0};
    TaskOptions m_options;
    State m_state = State::Configurable;
    int m_lastTaskId = 0;
    // Tells a run that ends after stop() and a new start() apart from the runs of the new series.
    std::uint64_t m_generation = 0;
    std::shared_ptr<Link> m_link;
};

} // namespace Zel::Tasks
