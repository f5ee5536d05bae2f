#pragma once

#include <Zel/Tasks/RunContext.h>

namespace Zel::Tasks {

class Manager;
class TaskRun;

// The run context the task manager hands to a run callback: it reads the run under the manager's
// lock. Lives on the worker's stack for the duration of the callback.
class ZEL_API RunContextImpl : public RunContext {
public:
    RunContextImpl(Manager& manager, const TaskRun& run) noexcept : m_manager(manager), m_run(run) {}
    ~RunContextImpl() override;

    int id() const override;
    bool canceled() const override;

private:
    Manager& m_manager;
    const TaskRun& m_run;
};

} // namespace Zel::Tasks
