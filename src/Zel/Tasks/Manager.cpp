#include <Zel/Tasks/Manager.h>

#include <Zel/ArgumentException.h>
#include <Zel/Async/EventLoop.h>
#include <Zel/Async/Threads/Manager.h>
#include <Zel/Events/Manager.h>
#include <Zel/GenericException.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Json/Array.h>
#include <Zel/Log/ILog.h>
#include <Zel/Log/Macros.h>
#include <Zel/Log/ThreadContext.h>
#include <Zel/Tasks/Queue.h>
#include <Zel/Tasks/Task.h>

#include <algorithm>
#include <utility>

namespace Zel::Tasks {

namespace {

// The polls of start(), stop() and cancelTask(); the state changes wake start() and stop() earlier.
constexpr std::chrono::milliseconds pollStep{1};

std::string threadNameAt(const char* file, int line) {
    return "file " + std::string(Zel::Detail::librarySourcePath(file)) + " (" + std::to_string(line) + ")";
}

} // namespace

Manager::Manager(std::shared_ptr<Async::Threads::Manager> threads, std::shared_ptr<Log::ILog> log,
                 std::shared_ptr<Events::Manager> events)
    : m_log(std::move(log)), m_threads(std::move(threads)), m_events(std::move(events)) {
    if (!m_threads) m_threads = std::make_shared<Async::Threads::Manager>(m_log);
}

Manager::~Manager() {
    try {
        stop();
    } catch (const std::exception& exception) {
        ZEL_LOG_ERROR(m_log, std::string("Tasks could not be stopped | message=") + exception.what());
    }
}

void Manager::setState(EState state) {
    m_state.store(state, std::memory_order_release);
    m_stateChanged.notify_all();
}

void Manager::start() {
    Lock lock(m_mutex);
    if (state() != EState::Stopped) throw GenericException("Tasks are already running");
    setState(EState::Starting);
    m_threadsInside.fetch_add(1, std::memory_order_relaxed);
    try {
        m_threads->start([this] { engine(); }, threadNameAt(__FILE__, __LINE__));
    } catch (...) {
        threadLeft();
        setState(EState::Stopped);
        throw;
    }
    while (state() == EState::Starting)
        m_stateChanged.wait_for(lock, pollStep);
}

void Manager::engine() {
    {
        Log::ThreadContext context(0, "Tasks");
        Lock lock(m_mutex);
        if (state() == EState::Stopping) {
            // Stopped while starting: there is nothing to undo.
            setState(EState::Stopped);
        } else {
            m_loop = std::make_unique<Async::EventLoop>(m_log);
            m_engineThread = std::this_thread::get_id();
            scheduleSweep();
            setState(EState::Running);
            lock.unlock();

            m_loop->run();

            lock.lock();
            std::unique_ptr<Async::EventLoop> loop = std::move(m_loop);
            m_engineThread = {};
            std::vector<std::shared_ptr<TaskRun>> garbage;
            auto queues = std::exchange(m_queues, {});
            for (auto& [name, queue] : queues) {
                queue->m_state.store(Queue::State::Removed, std::memory_order_release);
                queue->releaseAll(garbage, false);
                queue->signalRemoved();
            }
            auto tasks = m_tasks.takeAll();
            lock.unlock();
            // Pending calls hold queues and runs; all of it may end in user destructors.
            loop.reset();
            garbage.clear();
            queues.clear();
            tasks.clear();
            lock.lock();
            setState(EState::Stopped);
        }
    }
    threadLeft();
}

void Manager::scheduleSweep() {
    m_loop->call([this] { sweep(); }, m_sweepInterval);
}

void Manager::sweep() {
    std::vector<std::shared_ptr<TaskRun>> garbage;
    {
        Lock lock(m_mutex);
        const TaskRun::TimePoint finishedBefore = TaskRun::Clock::now() - m_keepFinished;
        for (auto& [name, queue] : m_queues)
            queue->sweep(finishedBefore, garbage);
        scheduleSweep();
    }
}

void Manager::stopAsync() {
    Lock lock(m_mutex);
    if (state() == EState::Starting) {
        setState(EState::Stopping);
        return;
    }
    if (state() != EState::Running) return;
    setState(EState::Stopping);
    std::vector<std::shared_ptr<Queue>> queues = this->queues();
    lock.unlock();
    // The last queue to drain stops the loop (see Queue::finishRemoval).
    for (const auto& queue : queues)
        queue->removeAsync();
    lock.lock();
    if (state() == EState::Stopping && m_queues.empty() && m_loop) m_loop->stopAsync();
}

void Manager::stop() {
    {
        // Both would wait for themselves: the engine runs finished callbacks, and a queue's removal
        // waits for its runs.
        Lock lock(m_mutex);
        const Queue* running = Queue::runningOnThisThread();
        if (onEngineThread() || (running && &running->m_manager == this)) ZEL_THROW_INVALID_OPERATION();
    }
    stopAsync();
    {
        Lock lock(m_mutex);
        while (state() != EState::Stopped)
            m_stateChanged.wait_for(lock, pollStep);
    }
    // The engine and the workers leave a moment after they made their last change.
    while (m_threadsInside.load(std::memory_order_acquire) != 0)
        std::this_thread::sleep_for(std::chrono::microseconds(100));
}

bool Manager::onEngineThread() const {
    return m_loop && m_engineThread == std::this_thread::get_id();
}

std::shared_ptr<Queue> Manager::addQueue(const std::string& name, int maxThreads) {
    Lock lock(m_mutex);
    if (state() != EState::Running) throw GenericException("Tasks are not running");
    if (m_queues.contains(name)) throw GenericException("Task queue already exists | name=" + name);
    if (maxThreads < 1) {
        throw ArgumentException("Task queue needs at least one thread | name=" + name +
                                " | maxThreads=" + std::to_string(maxThreads));
    }
    auto queue = std::make_shared<Queue>(Queue::Key(), *this, name, maxThreads);
    m_queues.emplace(name, queue);
    return queue;
}

std::shared_ptr<Queue> Manager::queue(const std::string& name, bool throwIfMissing) const {
    Lock lock(m_mutex);
    if (auto found = m_queues.find(name); found != m_queues.end()) return found->second;
    if (throwIfMissing) throw GenericException("Task queue not found | name=" + name);
    return nullptr;
}

std::vector<std::shared_ptr<Queue>> Manager::queues() const {
    Lock lock(m_mutex);
    std::vector<std::shared_ptr<Queue>> result;
    result.reserve(m_queues.size());
    for (const auto& [name, queue] : m_queues)
        result.push_back(queue);
    return result;
}

TaskAddResult Manager::addTask(std::shared_ptr<Task> task, const std::string& queueName,
                               std::chrono::milliseconds delay) {
    return queue(queueName, true)->addTask(std::move(task), delay);
}

bool Manager::cancelTaskAsync(int id) {
    Queue::ReleasedCallbacks released; // destroyed after the lock is released
    Lock lock(m_mutex);
    const std::shared_ptr<Task>* found = m_tasks.find(id);
    if (!found) return true;
    const std::shared_ptr<Task> task = *found;
    // Added again since, under another id: the run under this id is over.
    if (task->id() != id) return true;
    const std::shared_ptr<Queue> queue = task->m_queue.lock();
    if (!queue) return true;
    return queue->cancelTaskAsync(lock, task, released);
}

void Manager::cancelTask(int id) {
    while (!cancelTaskAsync(id))
        std::this_thread::sleep_for(pollStep);
}

TaskRunInfo Manager::getTaskRunInfo(int id) const {
    Lock lock(m_mutex);
    TaskRunInfo info;
    const std::shared_ptr<Task>* found = m_tasks.find(id);
    if (!found) return info;
    const Task& task = **found;
    info.found = true;
    info.taskId = id;
    info.name = task.name();
    if (const auto queue = task.m_queue.lock()) info.queue = queue->name();
    if (const auto& run = task.m_currentRun) {
        info.state = run->state();
        info.runAt = run->runAt();
        info.started = run->started();
        info.finished = run->finished();
    }
    info.retried = task.retried();
    info.progress = task.progress();
    return info;
}

std::string Manager::tasksJson() const {
    Lock lock(m_mutex);
    Json::Array array;
    for (const auto& [name, queue] : m_queues)
        array.addJson(queue->toJson());
    return array.json();
}

std::string Manager::tasksByTagJson(int tag, int stateMask) const {
    Lock lock(m_mutex);
    std::vector<const Task*> tasks;
    m_tasks.forEach([&](const Detail::TaskTable::Entry& entry) {
        const Task& task = *entry.task;
        const auto& run = task.m_currentRun;
        if (entry.tag == tag && task.options().tag() == tag && run && (run->state() & stateMask) != 0)
            tasks.push_back(&task);
    });
    std::sort(tasks.begin(), tasks.end(), [](const Task* a, const Task* b) { return a->id() < b->id(); });
    tasks.erase(std::unique(tasks.begin(), tasks.end()), tasks.end());
    Json::Array array;
    for (const Task* task : tasks)
        array.addJson(task->m_currentRun->toJson());
    return array.json();
}

std::size_t Manager::taskCount() const {
    Lock lock(m_mutex);
    return m_tasks.size();
}

void Manager::setHousekeeping(std::chrono::milliseconds interval, std::chrono::milliseconds keepFinished) {
    Lock lock(m_mutex);
    m_sweepInterval = std::max(interval, std::chrono::milliseconds(1));
    m_keepFinished = keepFinished;
}

void Manager::post(UniqueFunction<void()> function, std::chrono::milliseconds delay) {
    if (m_loop) m_loop->call(std::move(function), delay);
}

} // namespace Zel::Tasks
