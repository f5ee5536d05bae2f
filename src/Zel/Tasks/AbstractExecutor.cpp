#include <Zel/GenericException.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Tasks/AbstractExecutor.h>
#include <Zel/Tasks/IManager.h>
#include <condition_variable>
#include <exception>
#include <utility>

namespace Zel::Tasks {

struct AbstractExecutor::Callbacks {
    Task::RunCallback run;
    Task::FinishedCallback finished;
};

// How a task's finished callback reaches its executor: only while the executor exists, and the
// executor's destructor waits for a reach in progress.
struct AbstractExecutor::Link {
    std::mutex mutex;
    std::condition_variable idle;
    AbstractExecutor* executor = nullptr;
    int users = 0;

    void scheduleNext(std::uint64_t generation) {
        AbstractExecutor* target = nullptr;
        {
            std::lock_guard lock(mutex);
            if (executor == nullptr) return;
            target = executor;
            ++users;
        }
        struct Release {
            Link& link;
            ~Release() {
                std::lock_guard lock(link.mutex);
                if (--link.users == 0) link.idle.notify_all();
            }
        } release{*this};
        {
            std::lock_guard lock(target->m_mutex);
            if (target->m_state != State::Started || target->m_generation != generation) return;
        }
        target->schedule(target->nextRunDelay());
    }
};

AbstractExecutor::AbstractExecutor(IManager& manager)
    : m_manager(manager), m_callbacks(std::make_shared<Callbacks>()), m_link(std::make_shared<Link>()) {
    m_link->executor = this;
}

AbstractExecutor::~AbstractExecutor() {
    shutdown();
}

void AbstractExecutor::shutdown() noexcept {
    try {
        stop();
    } catch (...) {
        // Stopping only cancels the last task; a manager that refuses has nothing left to cancel.
    }
    std::unique_lock lock(m_link->mutex);
    m_link->executor = nullptr;
    m_link->idle.wait(lock, [this] { return m_link->users == 0; });
}

AbstractExecutor& AbstractExecutor::setQueue(const std::string& queueName) {
    std::lock_guard lock(m_mutex);
    if (m_state != State::Configurable) ZEL_THROW_INVALID_OPERATION();
    m_queueName = queueName;
    return *this;
}

AbstractExecutor& AbstractExecutor::setTask(std::string_view name, Task::RunCallback run,
                                            Task::FinishedCallback finished) {
    std::lock_guard lock(m_mutex);
    if (m_state != State::Configurable) ZEL_THROW_INVALID_OPERATION();
    m_taskName = name;
    // A fresh holder: tasks still in flight keep the old callbacks.
    auto callbacks = std::make_shared<Callbacks>();
    callbacks->run = std::move(run);
    callbacks->finished = std::move(finished);
    m_callbacks = std::move(callbacks);
    return *this;
}

AbstractExecutor& AbstractExecutor::delay(std::chrono::milliseconds initialDelay) {
    std::lock_guard lock(m_mutex);
    if (m_state != State::Configurable) ZEL_THROW_INVALID_OPERATION();
    m_delay = initialDelay;
    return *this;
}

AbstractExecutor& AbstractExecutor::setTaskOptions(const TaskOptions& options) {
    std::lock_guard lock(m_mutex);
    if (m_state != State::Configurable) ZEL_THROW_INVALID_OPERATION();
    m_options = options;
    return *this;
}

void AbstractExecutor::start() {
    {
        std::lock_guard lock(m_mutex);
        if (m_state != State::Configurable) throw GenericException("Abstract executor can not be started.");
        m_state = State::Started;
        ++m_generation;
    }
    started();
}

void AbstractExecutor::stop() {
    int lastTaskId = 0;
    {
        std::lock_guard lock(m_mutex);
        if (m_state != State::Started) return;
        m_state = State::Stopping;
        lastTaskId = m_lastTaskId;
    }
    // A finish wrapper running now sees Stopping and schedules nothing further.
    if (lastTaskId != 0) {
        try {
            m_manager.cancelTaskAsync(lastTaskId);
        } catch (const GenericException&) {
            // The task left its queue meanwhile; there is nothing to cancel.
        }
    }
    std::lock_guard lock(m_mutex);
    m_state = State::Configurable;
}

AbstractExecutor::State AbstractExecutor::state() const {
    std::lock_guard lock(m_mutex);
    return m_state;
}

int AbstractExecutor::lastTaskId() const {
    std::lock_guard lock(m_mutex);
    return m_lastTaskId;
}

void AbstractExecutor::started() {}

std::chrono::milliseconds AbstractExecutor::nextRunDelay() {
    return std::chrono::milliseconds(0);
}

std::chrono::milliseconds AbstractExecutor::initialDelay() const {
    std::lock_guard lock(m_mutex);
    return m_delay;
}

void AbstractExecutor::addRun(std::chrono::milliseconds runDelay, Repeat repeat) {
    std::shared_ptr<Task> task;
    std::string queueName;
    std::uint64_t generation = 0;
    {
        std::lock_guard lock(m_mutex);
        if (m_state != State::Started) return;
        generation = m_generation;
        queueName = m_queueName;
        auto run = [callbacks = m_callbacks](RunContext& context) { return callbacks->run(context); };
        auto finished = [callbacks = m_callbacks, link = m_link, generation, repeat](FinishContext& context) {
            // The next run is scheduled before the user hears of this one, so the period counts
            // from the end of the run and a failing callback cannot break the series.
            std::exception_ptr schedulingFailure;
            if (repeat == Repeat::Yes) {
                try {
                    link->scheduleNext(generation);
                } catch (...) {
                    schedulingFailure = std::current_exception();
                }
            }
            if (callbacks->finished) callbacks->finished(context);
            if (schedulingFailure) std::rethrow_exception(schedulingFailure);
        };
        task = std::make_shared<Task>(m_taskName, std::move(run), std::move(finished));
        task->setOptions(m_options);
    }

    const TaskAddResult result = m_manager.addTask(task, queueName, runDelay);

    bool stale = false;
    {
        std::lock_guard lock(m_mutex);
        stale = m_state != State::Started || m_generation != generation;
        if (!stale) m_lastTaskId = result.id();
    }
    // stop() ran while the task was being added and could not cancel it: do it here.
    if (stale && !result.existingTask()) {
        try {
            m_manager.cancelTaskAsync(result.id());
        } catch (const GenericException&) {
        }
    }
}

} // namespace Zel::Tasks
