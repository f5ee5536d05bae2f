#include <Zel/Json/Json.h>
#include <Zel/Json/Object.h>
#include <Zel/Tasks/Detail/EngineMutex.h>
#include <Zel/Tasks/Queue.h>
#include <Zel/Tasks/Task.h>
#include <Zel/Tasks/TaskRun.h>
#include <mutex>
#include <utility>

namespace Zel::Tasks {

Task::Task(const std::string& name, RunCallback&& run, FinishedCallback&& finished)
    : m_name(name), m_runCallback(std::move(run)), m_finishedCallback(std::move(finished)) {}

Task::~Task() = default;

Task& Task::setOptions(const TaskOptions& options) {
    m_options = options;
    return *this;
}

Task& Task::setReference(std::string_view reference) {
    m_options.setReference(std::string(reference));
    return *this;
}

void Task::enterQueue(int id, std::shared_ptr<TaskRun> run, std::weak_ptr<Queue> queue) {
    m_id.store(id, std::memory_order_relaxed);
    m_addCount.fetch_add(1, std::memory_order_relaxed);
    m_currentRun = std::move(run);
    m_queue = std::move(queue);
}

void Task::enterIntake(int id, std::weak_ptr<Queue> queue) {
    m_id.store(id, std::memory_order_relaxed);
    m_queue = std::move(queue);
}

void Task::startRetry(std::shared_ptr<TaskRun> run) {
    m_retried.fetch_add(1, std::memory_order_relaxed);
    m_progress.store(0, std::memory_order_relaxed);
    m_currentRun = std::move(run);
}

bool Task::forgetRun(const TaskRun& run) noexcept {
    if (m_currentRun.get() != &run) return false;
    m_currentRun.reset();
    return true;
}

std::shared_ptr<TaskRun> Task::currentRun() const {
    // The queue changes the current run under its manager's lock; without a queue nothing does.
    const std::shared_ptr<Queue> owner = m_queue.lock();
    if (!owner) return m_currentRun;
    std::unique_lock lock(owner->mutex());
    // A run still in the queue's intake becomes current when it is admitted.
    owner->offerToWorkers(lock);
    return m_currentRun;
}

std::shared_ptr<Queue> Task::queue() const {
    return m_queue.lock();
}

std::string Task::toJson() const {
    const std::shared_ptr<Queue> owner = m_queue.lock();
    std::unique_lock<Detail::EngineMutex> lock;
    if (owner) lock = std::unique_lock(owner->mutex());

    Json::Object options;
    options.addJson("logContext", Json::_encodeString(m_options.logContext()));
    options.addJson("reference", Json::_encodeString(m_options.reference()));
    options.add("tag", Variant(m_options.tag()));

    Json::Object object;
    object.add("id", Variant(id()));
    object.addJson("name", Json::_encodeString(m_name));
    if (owner) object.addJson("queue", Json::_encodeString(owner->name()));
    object.add("progress", Variant(progress()));
    object.add("retried", Variant(retried()));
    object.addJson("options", options.json());
    return object.json();
}

} // namespace Zel::Tasks
