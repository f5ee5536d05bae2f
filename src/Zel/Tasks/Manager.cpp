#include <Zel/GenericException.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Json/Array.h>
#include <Zel/Log/ILog.h>
#include <Zel/Log/Macros.h>
#include <Zel/Tasks/Detail/Engine.h>
#include <Zel/Tasks/Manager.h>
#include <Zel/Tasks/Queue.h>
#include <Zel/Tasks/Task.h>
#include <algorithm>
#include <thread>
#include <utility>

namespace Zel::Tasks {

namespace {

// The poll of cancelTask(), which waits for a run callback to notice that it was canceled.
constexpr std::chrono::milliseconds cancelPoll{1};

using Guard = Detail::Engine::Guard;

} // namespace

const std::string& Detail::engineThreadName() {
    static const std::string name = "file " + std::string(Zel::Detail::librarySourcePath(__FILE__)) + " (" +
                                    std::to_string(__LINE__) + ")";
    return name;
}

Manager::Manager(std::shared_ptr<Async::Threads::Manager> threads, std::shared_ptr<Log::ILog> log,
                 std::shared_ptr<Events::Manager> events)
    : m_engine(std::make_shared<Detail::Engine>(std::move(threads), std::move(log), std::move(events))) {}

Manager::~Manager() {
    try {
        stop();
    } catch (const std::exception& exception) {
        ZEL_LOG_ERROR(m_engine->log(),
                      std::string("Tasks could not be stopped | message=") + exception.what());
    }
}

Detail::EngineMutex& Manager::mutex() const noexcept {
    return m_engine->mutex();
}

Manager::State Manager::state() const noexcept {
    return static_cast<State>(m_engine->state());
}

void Manager::start() {
    Guard guard(mutex());
    m_engine->start(guard);
}

void Manager::stopAsync() {
    Guard guard(mutex());
    m_engine->stopAsync(guard);
}

void Manager::stop() {
    Guard guard(mutex());
    // Both would wait for themselves: the engine runs finished callbacks, and a queue's removal
    // waits for its runs.
    if (m_engine->onEngineThread() || m_engine->onWorker()) ZEL_THROW_INVALID_OPERATION();
    m_engine->stopAsync(guard);
    m_engine->waitStopped(guard);
}

std::shared_ptr<Queue> Manager::addQueue(const std::string& name, int maxThreads) {
    Guard guard(mutex());
    return m_engine->addQueue(guard, *this, name, maxThreads);
}

std::shared_ptr<Queue> Manager::queue(const std::string& name, IfMissing ifMissing) const {
    Guard guard(mutex());
    if (auto found = m_engine->findQueue(guard, name)) return found;
    if (ifMissing == IfMissing::Throw) throw GenericException("Task queue not found | name=" + name);
    return nullptr;
}

std::vector<std::shared_ptr<Queue>> Manager::queues() const {
    Guard guard(mutex());
    return m_engine->queues(guard);
}

TaskAddResult Manager::addTask(std::shared_ptr<Task> task, const std::string& queueName,
                               std::chrono::milliseconds delay) {
    return queue(queueName, IfMissing::Throw)->addTask(std::move(task), delay);
}

bool Manager::cancelTaskAsync(int id) {
    Guard guard(mutex());
    const std::shared_ptr<Task>* found = m_engine->findTask(guard, id);
    if (!found) return true;
    const std::shared_ptr<Task> task = *found;
    // Added again since, under another id: the run under this id is over.
    if (task->id() != id) return true;
    const std::shared_ptr<Queue> queue = task->queueLocked();
    if (!queue) return true;
    const bool canceled = queue->cancelTaskAsync(guard, task);
    // The task may be the last reference to a user type now.
    guard.unlock();
    return canceled;
}

void Manager::cancelTask(int id) {
    while (!cancelTaskAsync(id))
        std::this_thread::sleep_for(cancelPoll);
}

TaskRunInfo Manager::getTaskRunInfo(int id) const {
    Guard guard(mutex());
    TaskRunInfo info;
    const std::shared_ptr<Task>* found = m_engine->findTask(guard, id);
    if (!found) return info;
    const Task& task = **found;
    info.found = true;
    info.taskId = id;
    info.name = task.name();
    if (const auto queue = task.queueLocked()) info.queue = queue->name();
    if (const auto& run = task.currentRunLocked()) {
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
    Guard guard(mutex());
    Json::Array array;
    for (const auto& queue : m_engine->queues(guard))
        array.addJson(queue->toJson());
    return array.json();
}

std::string Manager::tasksByTagJson(int tag, int stateMask) const {
    Guard guard(mutex());
    std::vector<const Task*> tasks;
    m_engine->tasks(guard).forEach([&](const Detail::TaskTable::Entry& entry) {
        const Task& task = *entry.task;
        const auto& run = task.currentRunLocked();
        if (entry.tag == tag && task.options().tag() == tag && run && (run->state() & stateMask) != 0)
            tasks.push_back(&task);
    });
    std::sort(tasks.begin(), tasks.end(), [](const Task* a, const Task* b) { return a->id() < b->id(); });
    tasks.erase(std::unique(tasks.begin(), tasks.end()), tasks.end());
    Json::Array array;
    for (const Task* task : tasks)
        array.addJson(task->currentRunLocked()->toJson());
    return array.json();
}

std::size_t Manager::taskCount() const {
    Guard guard(mutex());
    return m_engine->tasks(guard).size();
}

void Manager::setHousekeeping(std::chrono::milliseconds interval, std::chrono::milliseconds keepFinished) {
    Guard guard(mutex());
    m_engine->setHousekeeping(guard, interval, keepFinished);
}

void Manager::setWorkerPool(int workers, std::chrono::milliseconds growAfter) {
    Guard guard(mutex());
    m_engine->setWorkerPool(guard, workers, growAfter);
}

void Manager::setClock(std::shared_ptr<IClock> clock) {
    Guard guard(mutex());
    m_engine->setClock(guard, std::move(clock));
}

int Manager::workerCount() const {
    Guard guard(mutex());
    return m_engine->workerCount(guard);
}

} // namespace Zel::Tasks
