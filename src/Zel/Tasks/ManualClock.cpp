#include <Zel/Tasks/ManualClock.h>
#include <utility>

namespace Zel::Tasks {

ManualClock::ManualClock() : m_now(std::chrono::steady_clock::now()) {}

ManualClock::~ManualClock() = default;

ManualClock::TimePoint ManualClock::now() const {
    std::lock_guard lock(m_mutex);
    return m_now;
}

void ManualClock::setJumpListener(UniqueFunction<void()> listener) {
    std::lock_guard lock(m_mutex);
    m_listener = listener ? std::make_shared<UniqueFunction<void()>>(std::move(listener)) : nullptr;
}

void ManualClock::advance(std::chrono::nanoseconds step) {
    std::shared_ptr<UniqueFunction<void()>> listener;
    {
        std::lock_guard lock(m_mutex);
        if (step.count() > 0) m_now += step;
        listener = m_listener;
    }
    // Outside the clock's lock: the listener takes the manager's, and the manager reads the clock
    // under its own.
    if (listener) (*listener)();
}

} // namespace Zel::Tasks
