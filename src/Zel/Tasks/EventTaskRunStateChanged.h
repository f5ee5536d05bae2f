#pragma once

#include <Zel/Events/Event.h>
#include <Zel/Tasks/TaskRun.h>
#include <memory>
#include <string>

namespace Zel::Tasks {

class Queue;

// Raised through the task manager's event manager each time a run changes state, under the name
// EventTaskRunStateChanged::eventName. Handlers run on the thread that made the change while it holds
// the manager's lock: keep them short, and never wait in one for another thread that uses the
// manager.
class ZEL_API EventTaskRunStateChanged : public Events::Event {
public:
    static const std::string eventName; // "tasks.taskRunStateChanged"

    EventTaskRunStateChanged(std::shared_ptr<Queue> queue, std::shared_ptr<TaskRun> run);
    ~EventTaskRunStateChanged() override;

    const std::shared_ptr<Queue>& queue() const noexcept { return m_queue; }
    const std::shared_ptr<TaskRun>& taskRun() const noexcept { return m_run; }
    // The state the run entered, kept as it was when the event was raised.
    TaskRun::State state() const noexcept { return m_state; }
    // The task's id at the time of the change.
    int taskId() const noexcept { return m_taskId; }

private:
    std::shared_ptr<Queue> m_queue;
    std::shared_ptr<TaskRun> m_run;
    TaskRun::State m_state;
    int m_taskId;
};

} // namespace Zel::Tasks
