#pragma once

#include <Zel/DateTime.h>
#include <Zel/Tasks/AbstractExecutor.h>
#include <Zel/Time.h>

namespace Zel::Tasks {

// Runs the work once a day at a local time of day, the first time at the next such time after
// start() (the initial delay is not used). Started exactly at the time of day, it waits a full day.
class ZEL_API RunAtExecutor final : public AbstractExecutor {
public:
    // An invalid time (null, or out of range) counts as 00:00:00.
    RunAtExecutor(IManager& manager, const Time& timeOfDay);
    ~RunAtExecutor() override;

    const Time& timeOfDay() const noexcept { return m_timeOfDay; }

    // From the local time now to the next time of day, in whole seconds.
    std::chrono::milliseconds calcDelayForNextSchedule() const;
    // The same from a given local date-time: tomorrow's time of day when today's is not later than
    // `now`.
    static std::chrono::milliseconds calcDelayForNextSchedule(const Time& timeOfDay, const DateTime& now);

protected:
    void schedule(std::chrono::milliseconds runDelay) override;
    void started() override;
    std::chrono::milliseconds nextRunDelay() override;

private:
    Time m_timeOfDay;
};

} // namespace Zel::Tasks
