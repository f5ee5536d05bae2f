#include <Zel/Json/Object.h>
#include <Zel/Tasks/Task.h>
#include <Zel/Tasks/TaskRun.h>
#include <utility>

namespace Zel::Tasks {

namespace {

std::int64_t steadyMilliseconds(TaskRun::TimePoint time) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

} // namespace

TaskRun::TaskRun(std::shared_ptr<Task> task, TimePoint runAt) : m_task(std::move(task)), m_runAt(runAt) {}

TaskRun::TaskRun(const TaskRun& other)
    : m_task(other.m_task), m_state(other.state()), m_runAt(other.m_runAt),
      m_started(other.m_started.load(std::memory_order_relaxed)),
      m_finished(other.m_finished.load(std::memory_order_relaxed)) {
    m_bookkeeping.taskId = other.m_bookkeeping.taskId;
}

TaskRun& TaskRun::operator=(const TaskRun& other) {
    if (this == &other) return *this;
    m_task = other.m_task;
    setState(other.state());
    m_runAt = other.m_runAt;
    store(m_started, other.started());
    store(m_finished, other.finished());
    // A copy is a snapshot: it belongs to none of the queue's lists.
    m_bookkeeping = Bookkeeping{other.m_bookkeeping.taskId};
    return *this;
}

TaskRun::~TaskRun() = default;

std::chrono::milliseconds TaskRun::duration() const noexcept {
    const State current = state();
    if (current != Succeeded && current != Failed) return std::chrono::milliseconds(0);
    return std::chrono::duration_cast<std::chrono::milliseconds>(finished() - started());
}

std::string TaskRun::toJson() const {
    Json::Object object;
    if (m_task) {
        object.addJson("task", m_task->toJson());
    } else {
        object.add("task", Variant());
    }
    object.add("state", Variant(static_cast<std::int32_t>(state())));
    object.add("runAt", Variant(steadyMilliseconds(m_runAt)));
    object.add("started", Variant(steadyMilliseconds(started())));
    object.add("finished", Variant(steadyMilliseconds(finished())));
    return object.json();
}

} // namespace Zel::Tasks
