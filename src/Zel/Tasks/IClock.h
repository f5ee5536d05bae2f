#pragma once

#include <Zel/Export.h>
#include <Zel/UniqueFunction.h>
#include <chrono>

namespace Zel::Tasks {

// Where a task manager reads the time: run start times, retry back-offs, and the age of finished
// runs that housekeeping drops all come from now(). The manager uses the steady clock unless it is
// given another before start() (see ManualClock, which lets tests move time by hand).
//
// Thread safety: now() is called from any thread.
class ZEL_API IClock {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~IClock();

    virtual TimePoint now() const = 0;

    // A clock that jumps (rather than following real time) calls `listener` after each jump, from the
    // thread that moved it, so that the manager starts at once whatever the jump made due. One
    // listener at a time; an empty function removes it. Clocks that follow real time ignore it.
    virtual void setJumpListener(UniqueFunction<void()> listener);
};

} // namespace Zel::Tasks
