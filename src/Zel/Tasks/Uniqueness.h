#pragma once

#include <cstdint>

namespace Zel::Tasks {

// How a task's reference keeps duplicates out of a queue. Values other than these two behave as
// Waiting.
enum class Uniqueness : std::int32_t {
    // A new task is refused while a task with the same reference waits in the queue.
    Waiting = 1,
    // ... and also while one with the same reference runs.
    WaitingOrRunning = 2,
};

} // namespace Zel::Tasks
