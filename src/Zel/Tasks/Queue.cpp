#include <Zel/Tasks/Queue.h>

#include <Zel/ArgumentException.h>
#include <Zel/Async/EventLoop.h>
#include <Zel/Async/Threads/Manager.h>
#include <Zel/Events/Manager.h>
#include <Zel/GenericException.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Json/Array.h>
#include <Zel/Json/Json.h>
#include <Zel/Json/Object.h>
#include <Zel/Log/ILog.h>
#include <Zel/Log/Macros.h>
#include <Zel/Log/ThreadContext.h>
#include <Zel/Tasks/EventTaskRunStateChanged.h>
#include <Zel/Tasks/Manager.h>
#include <Zel/Tasks/RunContextImpl.h>
#include <Zel/Tasks/Task.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace Zel::Tasks {

namespace {

// The queue whose run callback the calling thread is executing, if any.
thread_local const Queue* runningQueue = nullptr;

std::string threadNameAt(const char* file, int line) {
    return "file " + std::string(Zel::Detail::librarySourcePath(file)) + " (" + std::to_string(line) + ")";
}

bool inFuture(TaskRun::TimePoint runAt, TaskRun::TimePoint now) {
    // Whole milliseconds, as delays are given: a run due within the current millisecond is due.
    return std::chrono::duration_cast<std::chrono::milliseconds>(runAt - now).count() > 0;
}

} // namespace

Queue::Queue(Key, Manager& manager, std::string name, int maxThreads)
    : m_name(std::move(name)), m_maxThreads(maxThreads), m_manager(manager), m_threads(manager.m_threads),
      m_log(manager.m_log), m_events(manager.m_events), m_emptyEventName("tasks.queueEmpty." + m_name) {}

Queue::~Queue() {
    // Normally released already; this is the last chance to break the task <-> run cycles.
    auto breakCycle = [](const RunPtr& run) {
        if (run->m_task && run->m_task->m_currentRun == run) run->m_task->m_currentRun.reset();
    };
    for (auto& [runAt, run] : m_waiting)
        breakCycle(run);
    std::for_each(m_runningRuns.begin(), m_runningRuns.end(), breakCycle);
    std::for_each(m_finished.begin(), m_finished.end(), breakCycle);
}

std::recursive_mutex& Queue::mutex() const noexcept {
    return m_manager.mutex();
}

const Queue* Queue::runningOnThisThread() noexcept {
    return runningQueue;
}

int Queue::running() const {
    Lock lock(mutex());
    return m_running;
}

TaskAddResult Queue::addTask(std::shared_ptr<Task> task, std::chrono::milliseconds delay) {
    if (!task) throw ArgumentException("Task queue cannot add an empty task | queue=" + m_name);
    delay = std::max(delay, std::chrono::milliseconds(0));
    // Made before the lock is taken: the workers and the event loop wait for it less. Wasted only
    // when the reference refuses the add.
    auto run = std::make_shared<TaskRun>(task, TaskRun::Clock::now() + delay);

    Lock lock(mutex());
    if (state() != State::Active) {
        throw GenericException("Queue is not running | state=" + std::to_string(static_cast<int>(state())));
    }
    const TaskOptions& options = task->m_options;
    const std::string& reference = options.reference();
    if (!reference.empty()) {
        if (auto found = m_waitingReferences.find(reference); found != m_waitingReferences.end()) {
            return {found->second->id(), true};
        }
        if (options.uniqueness() == Uniqueness::WaitingOrRunning) {
            if (auto found = m_runningReferences.find(reference); found != m_runningReferences.end()) {
                return {found->second->id(), true};
            }
        }
    }

    const int id = m_manager.m_nextTaskId++;
    run->m_taskId = id;
    if (!reference.empty()) m_waitingReferences.emplace(reference, task);
    insertWaiting(run);
    task->m_id.store(id, std::memory_order_relaxed);
    task->m_addCount.fetch_add(1, std::memory_order_relaxed);
    task->m_currentRun = run;
    task->m_queue = weak_from_this();
    m_manager.m_tasks.add(id, options.tag(), task);

    // With every place taken, the run that ends first starts this one (see takeOver and
    // finishTaskRun); waking the loop would achieve nothing.
    if (delay.count() > 0 || m_running < m_maxThreads) postDispatch(delay);
    raiseStateChanged(run);
    return {id, false};
}

bool Queue::cancelTaskAsync(const std::shared_ptr<Task>& task) {
    if (!task) throw ArgumentException("Task queue cannot cancel an empty task | queue=" + m_name);
    ReleasedCallbacks released; // destroyed after the lock is released
    Lock lock(mutex());
    return cancelTaskAsync(lock, task, released);
}

bool Queue::cancelTaskAsync(Lock& lock, const std::shared_ptr<Task>& task, ReleasedCallbacks& released) {
    const RunPtr run = task->m_currentRun;
    if (task->m_queue.lock().get() != this || !run || run->m_place == TaskRun::Place::None) {
        throw GenericException("Cannot cancel the task because it's not in the queue. | queue=" + m_name +
                               " | taskId=" + std::to_string(task->id()));
    }
    switch (run->state()) {
    case TaskRun::Waiting:
        run->setState(TaskRun::Failed);
        raiseStateChanged(run);
        dropReference(m_waitingReferences, *task);
        eraseWaiting(run);
        run->m_place = TaskRun::Place::Finished;
        m_finished.push_back(run);
        callFinishedCallback(lock, *task, false, released);
        return true;
    case TaskRun::Running:
        run->setState(TaskRun::Canceling);
        raiseStateChanged(run);
        return false;
    case TaskRun::Canceling:
        return false;
    default:
        return true;
    }
}

bool Queue::empty() const {
    Lock lock(mutex());
    return m_waiting.empty() && m_runningRuns.empty();
}

void Queue::clear() {
    Lock lock(mutex());
    // Event handlers run under the lock and may add tasks; they go to the fresh lists, not into the
    // ones being dropped.
    const std::vector<RunPtr> running(m_runningRuns.begin(), m_runningRuns.end());
    Waiting waiting(m_waiting.get_allocator());
    waiting.swap(m_waiting);
    m_waitingReferences.clear();
    for (const RunPtr& run : running) {
        if (run->state() != TaskRun::Running) continue;
        run->setState(TaskRun::Canceling);
        raiseStateChanged(run);
    }
    for (auto& [runAt, run] : waiting) {
        run->setState(TaskRun::Failed);
        run->m_place = TaskRun::Place::Finished;
        m_finished.push_back(run);
        raiseStateChanged(run);
    }
    waiting.clear();
    waitingShrunk();
}

void Queue::removeAsync() {
    Lock lock(mutex());
    if (state() != State::Active) return;
    clear();
    if (m_runningRuns.empty()) {
        finishRemoval(lock);
    } else {
        m_state.store(State::Removing, std::memory_order_release);
    }
}

void Queue::remove() {
    removeAsync();
    {
        // Waiting here would wait for this very thread.
        Lock lock(mutex());
        if (runningQueue == this || m_manager.onEngineThread()) return;
    }
    std::unique_lock lock(m_removed.mutex);
    m_removed.changed.wait(lock, [this] { return m_removed.set; });
}

std::string Queue::toJson() const {
    Lock lock(mutex());
    Json::Array waiting;
    for (const auto& [runAt, run] : m_waiting)
        waiting.addJson(run->toJson());
    Json::Array running;
    for (const RunPtr& run : m_runningRuns)
        running.addJson(run->toJson());
    Json::Array finished;
    for (const RunPtr& run : m_finished)
        finished.addJson(run->toJson());

    Json::Object object;
    object.addJson("name", Json::_encodeString(m_name));
    object.add("state", Variant(static_cast<std::int32_t>(state())));
    object.add("maxThreads", Variant(m_maxThreads));
    object.add("runningCount", Variant(m_running));
    object.addJson("waiting", waiting.json());
    object.addJson("running", running.json());
    object.addJson("finished", finished.json());
    return object.json();
}

// --- scheduling, on the manager's event loop ---------------------------------------------------

void Queue::postDispatch(std::chrono::milliseconds delay) {
    if (delay.count() > 0) {
        m_manager.post(
            [self = shared_from_this()] {
                Lock lock(self->mutex());
                self->doTasks(lock);
            },
            delay);
        return;
    }
    // A burst of adds needs one dispatch, not one per task.
    if (m_dispatchPosted) return;
    m_dispatchPosted = true;
    m_manager.post(
        [self = shared_from_this()] {
            Lock lock(self->mutex());
            self->m_dispatchPosted = false;
            self->doTasks(lock);
        },
        delay);
}

void Queue::doTasks(Lock&) {
    if (state() != State::Active || m_running >= m_maxThreads) return;
    const auto now = TaskRun::Clock::now();
    std::vector<RunPtr> starting = std::exchange(m_starting, {});
    starting.clear();
    auto from = m_waiting.begin();
    while (m_running < m_maxThreads) {
        RunPtr run = takeNextDue(now, from);
        if (!run) break;
        ++m_running;
        starting.push_back(std::move(run));
    }
    // Events only now: their handlers may change the waiting list that the loop above walked.
    for (const RunPtr& run : starting) {
        raiseStateChanged(run);
        startWorker(run);
    }
    starting.clear();
    if (m_starting.empty()) m_starting = std::move(starting);
}

Queue::RunPtr Queue::takeNextDue(TaskRun::TimePoint now, Waiting::iterator& from) {
    for (auto it = from; it != m_waiting.end();) {
        const RunPtr& candidate = it->second;
        if (inFuture(candidate->m_runAt, now)) break; // the rest starts later still
        const std::string& reference = candidate->m_task->m_options.reference();
        if (!reference.empty()) {
            // Two runs with one reference never overlap in a queue: this one waits for the other.
            if (m_runningReferences.contains(reference)) {
                ++it;
                continue;
            }
            if (auto node = m_waitingReferences.extract(reference)) {
                m_runningReferences.insert(std::move(node));
            } else {
                m_runningReferences.emplace(reference, candidate->m_task);
            }
        }
        RunPtr run = std::move(it->second);
        from = m_waiting.erase(it);
        waitingShrunk();
        run->m_place = TaskRun::Place::Running;
        run->setState(TaskRun::Running);
        TaskRun::store(run->m_started, now);
        run->m_runningIndex = m_runningRuns.size();
        m_runningRuns.push_back(run);
        return run;
    }
    return nullptr;
}

void Queue::startWorker(const RunPtr& run) {
    static const std::string threadName = threadNameAt(__FILE__, __LINE__);
    m_manager.m_threadsInside.fetch_add(1, std::memory_order_relaxed);
    try {
        m_threads->start([this, run]() mutable { executeTaskRuns(std::move(run)); }, threadName);
    } catch (const std::exception& exception) {
        m_manager.threadLeft();
        ZEL_LOG_ERROR(m_log, "Task \"" + run->m_task->name() + "\" could not be started | queue=" + m_name +
                                 " | message=" + exception.what());
        queueFinish(run, false);
    }
}

void Queue::executeTaskRuns(RunPtr run) {
    // Once the last finish is posted this queue may be removed and destroyed; only the manager, which
    // waits for threadLeft(), may still be touched.
    Manager& manager = m_manager;
    while (run) {
        const bool succeeded = executeTaskRun(*run);
        Lock lock(mutex());
        queueFinish(run, succeeded);
        RunPtr next = takeOver(lock, *run);
        lock.unlock();
        run = std::move(next);
    }
    manager.threadLeft();
}

bool Queue::executeTaskRun(TaskRun& run) {
    Task& task = *run.m_task;
    Log::ThreadContext context(task.m_options.logSubsystem(), task.m_options.logContext());
    RunContextImpl runContext(m_manager, run);
    const Queue* outer = std::exchange(runningQueue, this);
    bool succeeded = false;
    try {
        succeeded = task.m_runCallback(runContext);
    } catch (const std::exception& exception) {
        ZEL_LOG_ERROR(m_log, "Task \"" + task.name() + "\" threw an std::exception | queue=" + m_name +
                                 " | message=" + exception.what());
    } catch (...) {
        ZEL_LOG_ERROR(m_log, "Task \"" + task.name() + "\" threw an unknown exception | queue=" + m_name);
    }
    runningQueue = outer;
    return succeeded;
}

Queue::RunPtr Queue::takeOver(Lock&, TaskRun& finished) {
    // Handing the thread straight to the next due run saves a round trip through the event loop and
    // a thread wake-up per run. Only after runs without a finished callback: where there is one, it
    // runs on the event loop before the run's place in the queue is given to the next run.
    if (state() != State::Active || finished.m_task->m_finishedCallback) return nullptr;
    auto from = m_waiting.begin();
    RunPtr next = takeNextDue(TaskRun::Clock::now(), from);
    if (!next) return nullptr;
    finished.m_handedOver = true; // its finish must not free the place the next run took
    raiseStateChanged(next);
    return next;
}

void Queue::queueFinish(const RunPtr& run, bool succeeded) {
    m_finishing.push_back({run, succeeded});
    // One call on the loop finishes every run that ended meanwhile.
    if (m_finishing.size() > 1) return;
    m_manager.post([self = shared_from_this()] { self->finishQueuedRuns(); }, std::chrono::milliseconds(0));
}

void Queue::finishQueuedRuns() {
    ReleasedCallbacks released; // destroyed after the lock is released
    Lock lock(mutex());
    std::vector<Finishing> batch;
    batch.swap(m_finishing);
    for (const Finishing& finishing : batch)
        finishTaskRun(lock, finishing.run, finishing.succeeded, released);
    batch.clear();
    if (m_finishing.empty()) m_finishing.swap(batch); // keeps the memory for the next batch
}

void Queue::finishTaskRun(Lock& lock, const RunPtr& run, bool succeeded, ReleasedCallbacks& released) {
    const std::shared_ptr<Task> task = run->m_task;
    dropReference(m_runningReferences, *task);
    const auto now = TaskRun::Clock::now();
    TaskRun::store(run->m_finished, now);
    if (run->m_place == TaskRun::Place::Running) eraseRunning(*run);
    run->m_place = TaskRun::Place::Finished;
    m_finished.push_back(run);
    if (!run->m_handedOver) --m_running;

    bool retrying = false;
    if (state() == State::Active && !succeeded && run->state() != TaskRun::Canceling) {
        retrying = retryTask(run, now);
    }
    const TaskRun::State finalState = succeeded ? TaskRun::Succeeded : TaskRun::Failed;
    if (!retrying) {
        callFinishedCallback(lock, *task, succeeded, released);
        run->setState(finalState);
        raiseStateChanged(run);
        // Removed while the callback ran: the removal finished the queue off already.
        if (state() == State::Removed) return;
    } else {
        run->setState(finalState);
        raiseStateChanged(run);
    }

    if (m_waiting.empty() && m_runningRuns.empty()) {
        if (state() == State::Removing) {
            finishRemoval(lock);
        } else if (m_events && m_events->hasHandlers(m_emptyEventName)) {
            lock.unlock();
            m_events->raise(m_emptyEventName);
            lock.lock();
        }
    } else {
        doTasks(lock);
    }
}

bool Queue::retryTask(const RunPtr& failedRun, TaskRun::TimePoint now) {
    const std::shared_ptr<Task>& task = failedRun->m_task;
    const TaskOptions& options = task->m_options;
    const int retried = task->retried();
    if (options.retryCount() != -1 && options.retryCount() <= retried) return false;
    const std::string& reference = options.reference();
    if (!reference.empty()) {
        // Another task with this reference waits already; it stands in for the retry.
        if (m_waitingReferences.contains(reference)) return false;
        m_waitingReferences.emplace(reference, task);
    }
    task->m_retried.store(retried + 1, std::memory_order_relaxed);
    const std::chrono::milliseconds delay = options.retryBackoff(retried + 1);

    auto run = std::make_shared<TaskRun>(task, now + delay);
    run->m_taskId = failedRun->m_taskId;
    insertWaiting(run);
    task->m_progress.store(0, std::memory_order_relaxed);
    task->m_currentRun = run;
    postDispatch(delay);
    raiseStateChanged(run);
    return true;
}

void Queue::callFinishedCallback(Lock& lock, Task& task, bool succeeded, ReleasedCallbacks& released) {
    // The task is over: what the run callback holds goes as soon as the lock is released, not when the
    // task is swept.
    if (task.m_runCallback) released.push_back(std::move(task.m_runCallback));
    if (!task.m_finishedCallback) return;
    Task::FinishedCallback finished = std::move(task.m_finishedCallback);
    lock.unlock();
    {
        Log::ThreadContext context(task.m_options.logSubsystem(), task.m_options.logContext());
        FinishContext finishContext(succeeded, task.id());
        try {
            finished(finishContext);
        } catch (const std::exception& exception) {
            ZEL_LOG_ERROR(m_log,
                          "Task \"" + task.name() +
                              "\" finish callback threw an std::exception | message=" + exception.what());
        } catch (...) {
            ZEL_LOG_ERROR(m_log, "Task \"" + task.name() + "\" finish callback threw an unknown exception");
        }
        finished = nullptr; // destroyed, like the callback's call, without the lock
    }
    lock.lock();
}

void Queue::finishRemoval(Lock& lock) {
    m_state.store(State::Removed, std::memory_order_release);
    if (auto found = m_manager.m_queues.find(m_name);
        found != m_manager.m_queues.end() && found->second.get() == this) {
        m_manager.m_queues.erase(found);
    }
    std::vector<RunPtr> garbage;
    releaseAll(garbage);
    signalRemoved();
    if (m_manager.state() == Manager::EState::Stopping && m_manager.m_queues.empty() && m_manager.m_loop) {
        m_manager.m_loop->stopAsync();
    }
    // Tasks may be user types with destructors of their own: not under the lock.
    lock.unlock();
    garbage.clear();
    lock.lock();
}

void Queue::signalRemoved() {
    {
        std::lock_guard signal(m_removed.mutex);
        m_removed.set = true;
    }
    m_removed.changed.notify_all();
}

void Queue::raiseStateChanged(const RunPtr& run) {
    if (!m_events || !m_events->hasHandlers(EventTaskRunStateChanged::eventName)) return;
    m_events->raise(EventTaskRunStateChanged(shared_from_this(), run));
}

void Queue::insertWaiting(RunPtr run) {
    run->m_place = TaskRun::Place::Waiting;
    const TaskRun::TimePoint runAt = run->m_runAt;
    // After every run due at the same time or earlier; for an undelayed add that is the end.
    m_waiting.emplace_hint(m_waiting.end(), runAt, std::move(run));
}

void Queue::eraseWaiting(const RunPtr& run) {
    auto [first, last] = m_waiting.equal_range(run->m_runAt);
    for (auto it = first; it != last; ++it) {
        if (it->second == run) {
            m_waiting.erase(it);
            waitingShrunk();
            return;
        }
    }
}

void Queue::waitingShrunk() noexcept {
    // No node is left, so nothing refers to the pool's memory.
    if (m_waiting.empty()) m_waitingPool.release();
}

void Queue::eraseRunning(TaskRun& run) {
    // The last run takes the place of the one leaving: no search, no shifting.
    const std::size_t index = run.m_runningIndex;
    if (index + 1 != m_runningRuns.size()) {
        m_runningRuns[index] = std::move(m_runningRuns.back());
        m_runningRuns[index]->m_runningIndex = index;
    }
    m_runningRuns.pop_back();
}

void Queue::dropReference(std::unordered_map<std::string, std::shared_ptr<Task>>& references,
                          const Task& task) {
    const std::string& reference = task.m_options.reference();
    if (reference.empty()) return;
    if (auto found = references.find(reference); found != references.end() && found->second.get() == &task) {
        references.erase(found);
    }
}

void Queue::sweep(TaskRun::TimePoint finishedBefore, std::vector<RunPtr>& garbage) {
    auto kept = m_finished.begin();
    for (RunPtr& run : m_finished) {
        if (run->finished() >= finishedBefore) {
            *kept++ = std::move(run);
            continue;
        }
        const std::shared_ptr<Task>& task = run->m_task;
        // A retry of the same add may still be waiting; the task stays known until its last run goes.
        const bool lastOfItsAdd = task->m_currentRun == run || task->id() != run->m_taskId;
        if (task->m_currentRun == run) task->m_currentRun.reset();
        if (lastOfItsAdd) m_manager.m_tasks.erase(run->m_taskId, *task);
        run->m_place = TaskRun::Place::None;
        garbage.push_back(std::move(run));
    }
    m_finished.erase(kept, m_finished.end());
}

void Queue::releaseAll(std::vector<RunPtr>& garbage, bool forgetTasks) {
    auto release = [&](RunPtr&& run) {
        const std::shared_ptr<Task>& task = run->m_task;
        if (task->m_currentRun == run) task->m_currentRun.reset();
        if (forgetTasks) m_manager.m_tasks.erase(run->m_taskId, *task);
        run->m_place = TaskRun::Place::None;
        garbage.push_back(std::move(run));
    };
    for (auto& [runAt, run] : m_waiting)
        release(std::move(run));
    for (RunPtr& run : m_runningRuns)
        release(std::move(run));
    for (RunPtr& run : m_finished)
        release(std::move(run));
    m_waiting.clear();
    waitingShrunk();
    m_runningRuns.clear();
    m_finished.clear();
    m_waitingReferences.clear();
    m_runningReferences.clear();
}

} // namespace Zel::Tasks
