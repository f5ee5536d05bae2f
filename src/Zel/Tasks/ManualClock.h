#pragma once

#include <Zel/Tasks/IClock.h>
#include <memory>
#include <mutex>

namespace Zel::Tasks {

// A clock that stands still until it is moved: delays, retries and housekeeping can then be tested
// without waiting for them.
//
//     auto clock = std::make_shared<ManualClock>();
//     manager.setClock(clock);
//     manager.start();
//     queue->addTask(task, 5s);
//     clock->advance(5s); // the task starts now
//
// Thread safety: every operation may be called from any thread.
class ZEL_API ManualClock : public IClock {
public:
    // Starts at the steady clock's present, so that its time points compare sensibly with real ones.
    ManualClock();
    ~ManualClock() override;

    TimePoint now() const override;
    void setJumpListener(UniqueFunction<void()> listener) override;

    // Moves the clock forward (a negative step is ignored) and tells the listener.
    void advance(std::chrono::nanoseconds step);

private:
    mutable std::mutex m_mutex;
    TimePoint m_now;
    std::shared_ptr<UniqueFunction<void()>> m_listener;
};

} // namespace Zel::Tasks
