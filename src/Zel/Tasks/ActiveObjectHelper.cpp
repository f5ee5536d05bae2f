#include <Zel/GenericException.h>
#include <Zel/Log/ILog.h>
#include <Zel/Log/Macros.h>
#include <Zel/Tasks/ActiveObjectHelper.h>
#include <Zel/Tasks/Queue.h>
#include <Zel/Tasks/Task.h>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Zel::Tasks {

namespace {

// The helper whose callback the calling thread runs, so that its destructor does not wait for itself.
thread_local const void* runningHelper = nullptr;

} // namespace

struct ActiveObjectHelper::Shared {
    std::shared_ptr<Log::ILog> log;
    // Keeps the queue object (not its manager) alive, so that cancelling after a removal is safe.
    std::shared_ptr<Queue> queue;
    std::string name;
    TaskOptions options;

    mutable std::mutex mutex;
    std::condition_variable idle;
    bool alive = true;
    int running = 0;
    // Tasks posted and not over yet. Weak: a task dropped by Queue::clear() is never finished.
    std::unordered_map<const Task*, std::weak_ptr<Task>> pending;

    Shared(std::shared_ptr<Log::ILog> logger, Queue& target, std::string taskName, TaskOptions taskOptions)
        : log(std::move(logger)), queue(target.shared_from_this()), name(std::move(taskName)),
          options(std::move(taskOptions)) {}

    // False once the object is gone: the callback must not run.
    bool enter() {
        std::lock_guard lock(mutex);
        if (!alive) return false;
        ++running;
        return true;
    }
    void leave() {
        std::lock_guard lock(mutex);
        if (--running == 0) idle.notify_all();
    }
};

ActiveObjectHelper::ActiveObjectHelper(std::shared_ptr<Log::ILog> log, Queue& queue, const std::string& name,
                                       const TaskOptions& options)
    : m_shared(std::make_shared<Shared>(std::move(log), queue, name, options)) {}

ActiveObjectHelper::~ActiveObjectHelper() {
    {
        std::lock_guard lock(m_shared->mutex);
        m_shared->alive = false;
    }
    cancelPending();
    const int own = runningHelper == m_shared.get() ? 1 : 0;
    std::unique_lock lock(m_shared->mutex);
    m_shared->idle.wait(lock, [&] { return m_shared->running <= own; });
}

TaskAddResult ActiveObjectHelper::post(UniqueFunction<void()> callback, std::chrono::milliseconds delay) {
    return post(UniqueFunction<bool(RunContext&)>([callback = std::move(callback)](RunContext&) {
                    callback();
                    return true;
                }),
                delay);
}

TaskAddResult ActiveObjectHelper::post(UniqueFunction<bool(RunContext&)> callback,
                                       std::chrono::milliseconds delay) {
    const std::shared_ptr<Shared> shared = m_shared;
    auto run = [shared, callback = std::move(callback)](RunContext& context) {
        if (!shared->enter()) {
            ZEL_LOG_DEBUG(shared->log, "Active object is gone, callback skipped | name=" + shared->name);
            return true;
        }
        struct Leave {
            Shared& shared;
            const void* outer;
            ~Leave() {
                runningHelper = outer;
                shared.leave();
            }
        } leave{*shared, std::exchange(runningHelper, shared.get())};
        return callback(context);
    };
    auto task = std::make_shared<Task>(shared->name, std::move(run));
    task->setOptions(shared->options);
    const Task* key = task.get();
    task->finishedCallback() = [shared, key](FinishContext&) {
        std::lock_guard lock(shared->mutex);
        shared->pending.erase(key);
    };
    {
        std::lock_guard lock(shared->mutex);
        shared->pending.emplace(key, task);
    }
    try {
        const TaskAddResult result = shared->queue->addTask(task, delay);
        if (result.existingTask()) {
            std::lock_guard lock(shared->mutex);
            shared->pending.erase(key);
        }
        return result;
    } catch (...) {
        std::lock_guard lock(shared->mutex);
        shared->pending.erase(key);
        throw;
    }
}

void ActiveObjectHelper::cancelPending() {
    std::vector<std::shared_ptr<Task>> tasks;
    {
        std::lock_guard lock(m_shared->mutex);
        for (auto it = m_shared->pending.begin(); it != m_shared->pending.end();) {
            if (auto task = it->second.lock()) {
                tasks.push_back(std::move(task));
                ++it;
            } else {
                it = m_shared->pending.erase(it);
            }
        }
    }
    for (const auto& task : tasks) {
        try {
            m_shared->queue->cancelTaskAsync(task);
        } catch (const GenericException& exception) {
            // Already over, or its queue was removed: nothing to cancel.
            ZEL_LOG_DEBUG(m_shared->log, std::string("Active object could not cancel a callback | name=") +
                                             m_shared->name + " | message=" + exception.what());
        }
    }
}

std::size_t ActiveObjectHelper::pendingCount() const {
    std::lock_guard lock(m_shared->mutex);
    std::size_t count = 0;
    for (const auto& [key, task] : m_shared->pending)
        count += task.expired() ? 0 : 1;
    return count;
}

} // namespace Zel::Tasks
