#include <Zel/InvalidOperationException.h>
#include <Zel/Tasks/PeriodicExecutor.h>

namespace Zel::Tasks {

PeriodicExecutor::PeriodicExecutor(IManager& manager) : AbstractExecutor(manager) {}

PeriodicExecutor::~PeriodicExecutor() {
    shutdown();
}

PeriodicExecutor& PeriodicExecutor::repeatAfter(std::chrono::milliseconds period) {
    std::lock_guard lock(m_mutex);
    if (stateLocked() != State::Configurable) ZEL_THROW_INVALID_OPERATION();
    m_period = period;
    return *this;
}

std::chrono::milliseconds PeriodicExecutor::period() const {
    std::lock_guard lock(m_mutex);
    return m_period;
}

void PeriodicExecutor::schedule(std::chrono::milliseconds runDelay) {
    addRun(runDelay, Repeat::Yes);
}

void PeriodicExecutor::started() {
    schedule(initialDelay());
}

std::chrono::milliseconds PeriodicExecutor::nextRunDelay() {
    return period();
}

} // namespace Zel::Tasks
