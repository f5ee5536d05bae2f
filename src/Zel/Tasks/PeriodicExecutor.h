#pragma once

#include <Zel/Tasks/AbstractExecutor.h>

namespace Zel::Tasks {

// Runs the work after the initial delay and then again `repeatAfter` after each run ended: the period
// counts from the end of a run, so runs never overlap. A run that ends after stop() schedules nothing.
class ZEL_API PeriodicExecutor final : public AbstractExecutor {
public:
    explicit PeriodicExecutor(IManager& manager);
    ~PeriodicExecutor() override;

    // Throws InvalidOperationException unless configurable.
    PeriodicExecutor& repeatAfter(std::chrono::milliseconds period);
    std::chrono::milliseconds period() const;

protected:
    void schedule(std::chrono::milliseconds runDelay) override;
    void started() override;
    std::chrono::milliseconds nextRunDelay() override;

private:
    std::chrono::milliseconds m_period{0};
};

} // namespace Zel::Tasks
