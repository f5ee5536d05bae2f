#pragma once

#include <Zel/Export.h>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace Zel::Tasks {

class Task;

// One scheduled execution of a task. A retry is a new run of the same task.
//
// The state and the times may be read from any thread while the queue changes them; the queue keeps
// the run in its lists until it is swept, some time after it finished.
class ZEL_API TaskRun {
public:
    using Clock = std::chrono::steady_clock;
    using TimePoint = Clock::time_point;

    // Single bits, so that callers can test a set of states with a mask.
    enum State : std::int32_t {
        Waiting = 1,   // queued, not yet started
        Running = 2,   // handed to a worker thread
        Canceling = 4, // cancel requested while running; the run callback sees canceled()
        Succeeded = 8, // the run callback returned true
        Failed = 16,   // false or an exception, canceled before it started, or dropped by clear()
    };

    TaskRun(std::shared_ptr<Task> task, TimePoint runAt);
    TaskRun(const TaskRun& other);
    TaskRun& operator=(const TaskRun& other);
    ~TaskRun();

    const std::shared_ptr<Task>& task() const noexcept { return m_task; }
    State state() const noexcept { return m_state.load(std::memory_order_acquire); }
    TimePoint runAt() const noexcept { return m_runAt; }
    // The zero time point until set.
    TimePoint started() const noexcept { return load(m_started); }
    TimePoint finished() const noexcept { return load(m_finished); }
    // finished - started in whole milliseconds once the run is Succeeded or Failed, else 0.
    std::chrono::milliseconds duration() const noexcept;

    // {"task":{...},"state":..,"runAt":..,"started":..,"finished":..}, the times in whole
    // milliseconds of the steady clock.
    std::string toJson() const;

private:
    friend class Queue;

    // Which of its queue's lists holds the run.
    enum class Place : std::uint8_t { None, Waiting, Running, Finished };

    // The queue's bookkeeping of the run, guarded by the manager's lock. A task may be added again
    // later under a new id; the run remembers the one it was scheduled under.
    struct Bookkeeping {
        int taskId = 0;
        Place place = Place::None;
        std::size_t runningIndex = 0; // in the queue's running list, while Place::Running
    };

    static TimePoint load(const std::atomic<Clock::rep>& time) noexcept {
        return TimePoint(Clock::duration(time.load(std::memory_order_relaxed)));
    }
    static void store(std::atomic<Clock::rep>& time, TimePoint value) noexcept {
        time.store(value.time_since_epoch().count(), std::memory_order_relaxed);
    }
    void setState(State state) noexcept { m_state.store(state, std::memory_order_release); }
    void markStarted(TimePoint now) noexcept {
        setState(Running);
        store(m_started, now);
    }
    void markFinished(TimePoint now) noexcept { store(m_finished, now); }
    Bookkeeping& bookkeeping() noexcept { return m_bookkeeping; }

    std::shared_ptr<Task> m_task;
    std::atomic<State> m_state{Waiting};
    TimePoint m_runAt;
    std::atomic<Clock::rep> m_started{0};
    std::atomic<Clock::rep> m_finished{0};
    Bookkeeping m_bookkeeping;
    // While the run waits in its queue's intake (see Queue::addTask): the next older run there, and
    // the reference that keeps this one alive until a worker admits it.
    TaskRun* m_nextInIntake = nullptr;
    std::shared_ptr<TaskRun> m_intakeSelf;
};

} // namespace Zel::Tasks
