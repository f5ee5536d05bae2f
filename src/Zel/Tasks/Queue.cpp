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
#include <Zel/Tasks/Detail/Engine.h>
#include <Zel/Tasks/EventTaskRunStateChanged.h>
#include <Zel/Tasks/Manager.h>
#include <Zel/Tasks/Queue.h>
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

const std::string& Detail::workerThreadName() {
    static const std::string name = threadNameAt(__FILE__, __LINE__);
    return name;
}

Queue::Queue(Key, Manager& manager, Detail::Engine& engine, std::string name, int maxThreads)
    : m_name(std::move(name)), m_maxThreads(maxThreads), m_manager(manager), m_engine(engine),
      m_log(engine.log()), m_events(engine.events()), m_emptyEventName("tasks.queueEmpty." + m_name) {}

Queue::~Queue() {
    // Normally released already; this is the last chance to break the task <-> run cycles.
    auto breakCycle = [](const RunPtr& run) {
        if (run->m_task) run->m_task->forgetRun(*run);
    };
    for (auto& [runAt, run] : m_waiting)
        breakCycle(run);
    for (TaskRun* run = m_intake.exchange(nullptr); run;) {
        TaskRun* const older = std::exchange(run->m_nextInIntake, nullptr);
        run->m_intakeSelf.reset(); // may destroy the run
        run = older;
    }
    std::for_each(m_runningRuns.begin(), m_runningRuns.end(), breakCycle);
    std::for_each(m_finished.begin(), m_finished.end(), breakCycle);
}

Detail::EngineMutex& Queue::mutex() const noexcept {
    return m_engine.mutex();
}

const Queue* Queue::runningOnThisThread() noexcept {
    return runningQueue;
}

int Queue::running() const {
    Guard guard(mutex());
    return m_running;
}

namespace {

bool stateChangesWatched(const std::shared_ptr<Events::Manager>& events) {
    return events && events->hasHandlers(EventTaskRunStateChanged::eventName);
}

} // namespace

TaskAddResult Queue::addTask(std::shared_ptr<Task> task, std::chrono::milliseconds delay) {
    if (!task) throw ArgumentException("Task queue cannot add an empty task | queue=" + m_name);
    delay = std::max(delay, std::chrono::milliseconds(0));
    const auto runAt = m_engine.now() + delay;
    const auto refuse = [this] {
        throw GenericException("Queue is not running | state=" + std::to_string(static_cast<int>(state())));
    };
    // The common add (now, no reference, a task never added before, nobody watching state changes)
    // needs no lock: nothing is to be looked up, and the workers admit the run.
    if (delay.count() == 0 && task->options().reference().empty() && !stateChangesWatched(m_events)) {
        if (state() != State::Active) refuse();
        if (task->claimFirstAdd()) return addToIntake(std::move(task), runAt);
    }
    // Made before the lock is taken: the workers wait for it less. Wasted only when the reference
    // refuses the add.
    auto run = std::make_shared<TaskRun>(task, runAt);
    Guard guard(mutex());
    if (state() != State::Active) refuse();
    // What the intake holds was added earlier and goes first; a task added before to another queue
    // is settled there before it moves.
    admitIntake(guard, nullptr);
    if (const auto previous = task->queueLocked(); previous && previous.get() != this)
        previous->offerToWorkers(guard);
    const TaskOptions& options = task->options();
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

    const int id = m_engine.allocateTaskId();
    run->bookkeeping().taskId = id;
    if (!reference.empty()) m_waitingReferences.emplace(reference, task);
    insertWaiting(run);
    task->enterQueue(id, run, weak_from_this());
    m_engine.registerTask(guard, id, options.tag(), std::move(task));

    if (delay.count() > 0) {
        scheduleWakeUp(guard, runAt);
    } else {
        offerToWorkers(guard);
    }
    raiseStateChanged(run);
    return {id, false};
}

bool Queue::cancelTaskAsync(const std::shared_ptr<Task>& task) {
    if (!task) throw ArgumentException("Task queue cannot cancel an empty task | queue=" + m_name);
    Guard guard(mutex());
    return cancelTaskAsync(guard, task);
}

bool Queue::cancelTaskAsync(Guard& guard, const std::shared_ptr<Task>& task) {
    offerToWorkers(guard); // a run in the intake can be canceled too
    const RunPtr run = task->currentRunLocked();
    if (task->queueLocked().get() != this || !run || run->bookkeeping().place == TaskRun::Place::None) {
        throw GenericException("Cannot cancel the task because it's not in the queue. | queue=" + m_name +
                               " | taskId=" + std::to_string(task->id()));
    }
    switch (run->state()) {
    case TaskRun::Waiting: {
        run->setState(TaskRun::Failed);
        raiseStateChanged(run);
        dropReference(m_waitingReferences, *task);
        eraseWaiting(run);
        run->bookkeeping().place = TaskRun::Place::Finished;
        m_finished.push_back(run);
        Detail::Garbage garbage;
        callFinishedCallback(guard, *task, false, garbage);
        guard.unlock();
        garbage.clear();
        guard.lock();
        return true;
    }
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
    Guard guard(mutex());
    // A run keeps its place until its finished callback returned: until then the queue is not empty.
    return m_waiting.empty() && m_runningRuns.empty() && m_running == 0 &&
           m_intake.load(std::memory_order_acquire) == nullptr;
}

void Queue::clear() {
    Guard guard(mutex());
    admitIntake(guard, nullptr);
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
        run->bookkeeping().place = TaskRun::Place::Finished;
        m_finished.push_back(run);
        raiseStateChanged(run);
    }
    waiting.clear();
    waitingShrunk();
}

void Queue::removeAsync() {
    Guard guard(mutex());
    if (state() != State::Active) return;
    clear();
    if (m_runningRuns.empty()) {
        finishRemoval(guard);
    } else {
        m_state.store(State::Removing, std::memory_order_release);
    }
}

void Queue::remove() {
    removeAsync();
    {
        // Waiting here would wait for this very thread.
        Guard guard(mutex());
        if (runningQueue == this || m_engine.onEngineThread()) return;
    }
    std::unique_lock lock(m_removed.mutex);
    m_removed.changed.wait(lock, [this] { return m_removed.set; });
}

std::string Queue::toJson() const {
    Guard guard(mutex());
    const_cast<Queue*>(this)->offerToWorkers(guard);
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

// --- scheduling ---------------------------------------------------------------------------------

bool Queue::canStartNow() const {
    return state() == State::Active && m_running < m_maxThreads && !m_waiting.empty() &&
           m_engine.isDue(m_waiting.begin()->first);
}

void Queue::offerToWorkers(Guard& guard, Watch watch) {
    admitIntake(guard, nullptr);
    if (!m_offered && canStartNow()) {
        m_offered = true;
        m_engine.handToWorker(guard, shared_from_this());
    }
    keepWatch(guard, watch);
}

// --- the intake ---------------------------------------------------------------------------------

TaskAddResult Queue::addToIntake(std::shared_ptr<Task> task, TaskRun::TimePoint runAt) {
    const int id = m_engine.allocateTaskId();
    task->enterIntake(id, weak_from_this());
    auto run = std::make_shared<TaskRun>(std::move(task), runAt);
    run->bookkeeping().taskId = id;
    TaskRun* const added = run.get();
    added->m_intakeSelf = std::move(run);
    TaskRun* newest = m_intake.load(std::memory_order_relaxed);
    do {
        added->m_nextInIntake = newest;
    } while (
        !m_intake.compare_exchange_weak(newest, added, std::memory_order_seq_cst, std::memory_order_relaxed));

    if (state() == State::Active && m_intakeWatched.exchange(true, std::memory_order_seq_cst)) {
        if (m_watchListed.load(std::memory_order_relaxed)) m_engine.signalArrival();
        return {id, false};
    }
    Detail::Garbage garbage; // destroyed after the lock is released
    Guard guard(mutex());
    if (state() == State::Active) {
        offerToWorkers(guard);
    } else {
        // Removed meanwhile: the run ends as the runs the removal found did.
        admitIntake(guard, &garbage);
    }
    return {id, false};
}

void Queue::admitIntake(Guard& guard, Detail::Garbage* garbage) {
    if (m_intake.load(std::memory_order_acquire) == nullptr) return;
    if (state() == State::Removed && !garbage) return;
    // The stack holds the newest first: reversed, the runs enter in the order they were added.
    TaskRun* oldest = nullptr;
    TaskRun* newest = m_intake.exchange(nullptr, std::memory_order_seq_cst);
    while (newest) {
        TaskRun* const older = newest->m_nextInIntake;
        newest->m_nextInIntake = oldest;
        oldest = newest;
        newest = older;
    }
    while (oldest) {
        RunPtr run = std::move(oldest->m_intakeSelf);
        oldest = std::exchange(oldest->m_nextInIntake, nullptr);
        if (state() == State::Removed) {
            garbage->runs.push_back(std::move(run));
            continue;
        }
        const std::shared_ptr<Task>& task = run->m_task;
        task->admitRun(run);
        m_engine.registerTask(guard, run->bookkeeping().taskId, task->options().tag(), task);
        if (state() == State::Active) {
            insertWaiting(std::move(run));
            continue;
        }
        // Removing: dropped as clear() drops what waits.
        run->setState(TaskRun::Failed);
        run->bookkeeping().place = TaskRun::Place::Finished;
        m_finished.push_back(std::move(run));
    }
}

void Queue::keepWatch(Guard& guard, Watch watch) {
    for (;;) {
        // An offered queue is looked at by the worker that takes it, and a full one by the next run
        // to finish.
        if (state() != State::Active || m_offered || m_running >= m_maxThreads) return;
        if (m_engine.watch(guard, *this, watch == Watch::ByCaller)) return;
        m_intakeWatched.store(false, std::memory_order_seq_cst);
        // An add that came before the store is seen here; one after it takes the lock itself.
        if (m_intake.load(std::memory_order_seq_cst) == nullptr ||
            m_intakeWatched.exchange(true, std::memory_order_seq_cst))
            return;
        admitIntake(guard, nullptr);
        if (canStartNow()) {
            m_offered = true;
            m_engine.handToWorker(guard, shared_from_this());
            return;
        }
    }
}

void Queue::scheduleWakeUp(Guard& guard, TaskRun::TimePoint at) {
    // One timer for the earliest delayed run is enough: each wake-up that starts runs looks again.
    if (at >= m_wakeUpAt) return;
    m_wakeUpAt = at;
    m_engine.callAt(guard, at, [weak = weak_from_this(), at] {
        const auto self = weak.lock();
        if (!self) return;
        Guard timerGuard(self->mutex());
        if (self->m_wakeUpAt == at) self->m_wakeUpAt = TaskRun::TimePoint::max();
        self->offerToWorkers(timerGuard);
        // Runs due later still need their own wake-up.
        const auto now = self->m_engine.now();
        for (const auto& [runAt, run] : self->m_waiting) {
            if (inFuture(runAt, now)) {
                self->scheduleWakeUp(timerGuard, runAt);
                break;
            }
        }
    });
}

void Queue::runNext(Guard& guard, Detail::Garbage& garbage) {
    m_offered = false;
    admitIntake(guard, nullptr);
    RunPtr run = state() == State::Active && m_running < m_maxThreads ? takeNextDue() : nullptr;
    // This worker looks for work next: it may keep watching the intake meanwhile.
    if (!run) keepWatch(guard, Watch::ByCaller);
    while (run) {
        ++m_running;
        // Another worker may take the next run of this queue meanwhile, after the other queues' turns.
        offerToWorkers(guard);
        raiseStateChanged(run);

        guard.unlock();
        garbage.clear(); // what the previous run left behind
        const bool succeeded = execute(*run);
        guard.lock();

        m_engine.runExecuted(guard);
        const bool finishedHere = !run->m_task->finishedCallback();
        if (finishedHere) {
            finishTaskRun(guard, run, succeeded, garbage, Watch::ByCaller);
        } else {
            queueFinish(guard, run, succeeded);
        }
        // The last reference, when the queue was removed meanwhile: goes with the garbage.
        garbage.runs.push_back(std::move(run));
        // While no other queue waits for a worker, this one goes straight on with its next due run,
        // taking back the offer its finish made: a turn through the offers would only cost time.
        if (!finishedHere || !m_offered || state() != State::Active || !m_engine.takeBackOffer(guard, *this))
            return;
        m_offered = false;
        run = m_running < m_maxThreads ? takeNextDue() : nullptr;
    }
}

Queue::RunPtr Queue::takeNextDue() {
    for (auto it = m_waiting.begin(); it != m_waiting.end();) {
        const RunPtr& candidate = it->second;
        if (!m_engine.isDue(candidate->m_runAt)) break; // the rest starts later still
        const std::string& reference = candidate->m_task->options().reference();
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
        m_waiting.erase(it);
        waitingShrunk();
        TaskRun::Bookkeeping& bookkeeping = run->bookkeeping();
        bookkeeping.place = TaskRun::Place::Running;
        bookkeeping.runningIndex = m_runningRuns.size();
        run->markStarted(m_engine.recent());
        m_runningRuns.push_back(run);
        return run;
    }
    return nullptr;
}

bool Queue::execute(TaskRun& run) {
    Task& task = *run.m_task;
    Log::ThreadContext context(task.options().logSubsystem(), task.options().logContext());
    RunContextImpl runContext(m_manager, run);
    const Queue* outer = std::exchange(runningQueue, this);
    bool succeeded = false;
    try {
        succeeded = task.runCallback()(runContext);
    } catch (const std::exception& exception) {
        ZEL_LOG_ERROR(m_log, "Task \"" + task.name() + "\" threw an std::exception | queue=" + m_name +
                                 " | message=" + exception.what());
    } catch (...) {
        ZEL_LOG_ERROR(m_log, "Task \"" + task.name() + "\" threw an unknown exception | queue=" + m_name);
    }
    runningQueue = outer;
    return succeeded;
}

void Queue::queueFinish(Guard& guard, const RunPtr& run, bool succeeded) {
    m_finishing.push_back({run, succeeded});
    // One call on the engine thread finishes every run that ended meanwhile.
    if (m_finishing.size() > 1) return;
    m_engine.post(guard, [self = shared_from_this()] { self->finishQueuedRuns(); });
}

void Queue::finishQueuedRuns() {
    Detail::Garbage garbage;
    Guard guard(mutex());
    std::vector<Finishing> batch;
    batch.swap(m_finishing);
    for (const Finishing& finishing : batch)
        finishTaskRun(guard, finishing.run, finishing.succeeded, garbage);
    for (Finishing& finishing : batch)
        garbage.runs.push_back(std::move(finishing.run));
    batch.clear();
    if (m_finishing.empty()) m_finishing.swap(batch); // keeps the memory for the next batch
    guard.unlock();
    garbage.clear();
}

void Queue::finishTaskRun(Guard& guard, const RunPtr& run, bool succeeded, Detail::Garbage& garbage,
                          Watch watch) {
    const std::shared_ptr<Task> task = run->m_task;
    dropReference(m_runningReferences, *task);
    const auto now = m_engine.now();
    run->markFinished(now);
    if (run->bookkeeping().place == TaskRun::Place::Running) eraseRunning(*run);
    run->bookkeeping().place = TaskRun::Place::Finished;
    m_finished.push_back(run);

    bool retrying = false;
    if (state() == State::Active && !succeeded && run->state() != TaskRun::Canceling) {
        retrying = retryTask(guard, run, now);
    }
    const TaskRun::State finalState = succeeded ? TaskRun::Succeeded : TaskRun::Failed;
    if (!retrying) {
        // The place is kept until the finished callback returned: the queue's next run starts after.
        callFinishedCallback(guard, *task, succeeded, garbage);
        --m_running;
        run->setState(finalState);
        raiseStateChanged(run);
        // Removed while the callback ran: the removal finished the queue off already.
        if (state() == State::Removed) return;
    } else {
        --m_running;
        run->setState(finalState);
        raiseStateChanged(run);
    }

    offerToWorkers(guard, watch);
    if (m_waiting.empty() && m_runningRuns.empty()) {
        if (state() == State::Removing) {
            finishRemoval(guard);
        } else if (m_events && m_events->hasHandlers(m_emptyEventName)) {
            guard.unlock();
            m_events->raise(m_emptyEventName);
            guard.lock();
        }
    }
}

bool Queue::retryTask(Guard& guard, const RunPtr& failedRun, TaskRun::TimePoint now) {
    const std::shared_ptr<Task>& task = failedRun->m_task;
    const TaskOptions& options = task->options();
    const int retried = task->retried();
    if (options.retryCount() != -1 && options.retryCount() <= retried) return false;
    const std::string& reference = options.reference();
    if (!reference.empty()) {
        // Another task with this reference waits already; it stands in for the retry.
        if (m_waitingReferences.contains(reference)) return false;
        m_waitingReferences.emplace(reference, task);
    }
    const std::chrono::milliseconds delay = options.retryBackoff(retried + 1);
    auto run = std::make_shared<TaskRun>(task, now + delay);
    run->bookkeeping().taskId = failedRun->bookkeeping().taskId;
    insertWaiting(run);
    task->startRetry(run);
    if (delay.count() > 0) {
        scheduleWakeUp(guard, now + delay);
    } else {
        offerToWorkers(guard);
    }
    raiseStateChanged(run);
    return true;
}

void Queue::callFinishedCallback(Guard& guard, Task& task, bool succeeded, Detail::Garbage& garbage) {
    // The task is over: what its run callback holds goes first, before the finished callback runs,
    // and never under the lock.
    Task::RunCallback runCallback = std::move(task.runCallback());
    if (!task.finishedCallback()) {
        if (runCallback) garbage.callbacks.push_back(std::move(runCallback));
        return;
    }
    Task::FinishedCallback finished = std::move(task.finishedCallback());
    guard.unlock();
    runCallback = nullptr;
    {
        Log::ThreadContext context(task.options().logSubsystem(), task.options().logContext());
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
    guard.lock();
}

void Queue::finishRemoval(Guard& guard) {
    m_state.store(State::Removed, std::memory_order_release);
    Detail::Garbage garbage;
    // A stopping manager drops its whole table of tasks at once; forgetting them one by one would
    // only make stop() slower.
    releaseAll(guard, garbage, m_engine.state() != Detail::Engine::State::Stopping);
    m_engine.forgetQueue(guard, *this);
    signalRemoved();
    // Tasks may be user types with destructors of their own: not under the lock.
    guard.unlock();
    garbage.clear();
    guard.lock();
}

void Queue::abandon(Guard& guard, Detail::Garbage& garbage) {
    m_state.store(State::Removed, std::memory_order_release);
    releaseAll(guard, garbage, false);
    signalRemoved();
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
    run->bookkeeping().place = TaskRun::Place::Waiting;
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
    const std::size_t index = run.bookkeeping().runningIndex;
    if (index + 1 != m_runningRuns.size()) {
        m_runningRuns[index] = std::move(m_runningRuns.back());
        m_runningRuns[index]->bookkeeping().runningIndex = index;
    }
    m_runningRuns.pop_back();
}

void Queue::dropReference(std::unordered_map<std::string, std::shared_ptr<Task>>& references,
                          const Task& task) {
    const std::string& reference = task.options().reference();
    if (reference.empty()) return;
    if (auto found = references.find(reference); found != references.end() && found->second.get() == &task) {
        references.erase(found);
    }
}

void Queue::sweep(Guard& guard, TaskRun::TimePoint finishedBefore, Detail::Garbage& garbage) {
    auto kept = m_finished.begin();
    for (RunPtr& run : m_finished) {
        if (run->finished() >= finishedBefore) {
            *kept++ = std::move(run);
            continue;
        }
        const std::shared_ptr<Task>& task = run->m_task;
        const int taskId = run->bookkeeping().taskId;
        // A retry of the same add may still be waiting; the task stays known until its last run goes.
        const bool wasCurrent = task->forgetRun(*run);
        if (wasCurrent || task->id() != taskId) m_engine.forgetTask(guard, taskId, *task);
        run->bookkeeping().place = TaskRun::Place::None;
        garbage.runs.push_back(std::move(run));
    }
    m_finished.erase(kept, m_finished.end());
}

void Queue::releaseAll(Guard& guard, Detail::Garbage& garbage, bool forgetTasks) {
    admitIntake(guard, &garbage); // the queue is removed: its intake's runs go with the garbage
    auto release = [&](RunPtr&& run) {
        const std::shared_ptr<Task>& task = run->m_task;
        task->forgetRun(*run);
        if (forgetTasks) m_engine.forgetTask(guard, run->bookkeeping().taskId, *task);
        run->bookkeeping().place = TaskRun::Place::None;
        garbage.runs.push_back(std::move(run));
    };
    for (auto& [runAt, run] : m_waiting)
        release(std::move(run));
    for (RunPtr& run : m_runningRuns)
        release(std::move(run));
    for (RunPtr& run : m_finished)
        release(std::move(run));
    for (Finishing& finishing : m_finishing)
        garbage.runs.push_back(std::move(finishing.run));
    m_finishing.clear();
    m_waiting.clear();
    waitingShrunk();
    m_runningRuns.clear();
    m_finished.clear();
    for (auto& [reference, task] : m_waitingReferences)
        garbage.tasks.push_back(std::move(task));
    for (auto& [reference, task] : m_runningReferences)
        garbage.tasks.push_back(std::move(task));
    m_waitingReferences.clear();
    m_runningReferences.clear();
}

} // namespace Zel::Tasks
