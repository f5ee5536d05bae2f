#include <Zel/Tasks/EventTaskRunStateChanged.h>
#include <Zel/Tasks/Task.h>
#include <utility>

namespace Zel::Tasks {

const std::string EventTaskRunStateChanged::eventName = "tasks.taskRunStateChanged";

EventTaskRunStateChanged::EventTaskRunStateChanged(std::shared_ptr<Queue> queue, std::shared_ptr<TaskRun> run)
    : Events::Event(eventName), m_queue(std::move(queue)), m_run(std::move(run)), m_state(m_run->state()),
      m_taskId(m_run->task() ? m_run->task()->id() : 0) {}

EventTaskRunStateChanged::~EventTaskRunStateChanged() = default;

} // namespace Zel::Tasks
