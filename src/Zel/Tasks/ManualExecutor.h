#pragma once

#include <Zel/Tasks/AbstractExecutor.h>

namespace Zel::Tasks {

// Runs the work when asked: each execute() adds one task. Nothing runs on start() alone.
class ZEL_API ManualExecutor final : public AbstractExecutor {
public:
    explicit ManualExecutor(IManager& manager);
    ~ManualExecutor() override;

    // Adds one run after `runDelay`; throws InvalidOperationException unless started.
    void execute(std::chrono::milliseconds runDelay = std::chrono::milliseconds(0));

protected:
    void schedule(std::chrono::milliseconds runDelay) override;
};

} // namespace Zel::Tasks
