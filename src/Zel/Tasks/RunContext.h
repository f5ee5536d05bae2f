#pragma once

#include <Zel/Export.h>

namespace Zel::Tasks {

// Handed to a task's run callback. A long callback polls canceled() and returns soon after it turns
// true; the task manager never interrupts a run.
class ZEL_API RunContext {
public:
    virtual ~RunContext();

    // The running task's id.
    virtual int id() const = 0;
    // True once cancellation of this run was requested (the run is in state Canceling).
    virtual bool canceled() const = 0;

protected:
    RunContext() = default;
    RunContext(const RunContext&) = default;
    RunContext& operator=(const RunContext&) = default;
};

} // namespace Zel::Tasks
