#pragma once

#include <Zel/Export.h>
#include <Zel/Tasks/RunContext.h>
#include <Zel/Tasks/TaskAddResult.h>
#include <Zel/Tasks/TaskOptions.h>
#include <Zel/UniqueFunction.h>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

namespace Zel::Log {
class ILog;
}

namespace Zel::Tasks {

class Queue;

// Runs callbacks of one object on a task queue, one task per post, and guarantees that none of them
// runs once the helper is destroyed: the destructor cancels what still waits and waits for what runs.
// Make it the object's last member, so that it goes before the state its callbacks use.
//
//     class MailSender {
//         ...
//         void sendLater(Mail mail) { m_active.post([this, mail] { send(mail); }); }
//         ActiveObjectHelper m_active{log, *queue, "mail sender", TaskOptions()};
//     };
//
// The tasks are named `name` and carry the options given; with a reference in the options, posts
// that find one still waiting are merged into it (the result then says existingTask).
//
// Thread safety: post() may be called from any thread, also from inside a callback. The helper
// must not be destroyed from inside a callback on another helper's behalf; from its own callback
// it does not wait for that callback.
class ZEL_API ActiveObjectHelper {
public:
    ActiveObjectHelper(std::shared_ptr<Log::ILog> log, Queue& queue, const std::string& name,
                       const TaskOptions& options);
    ~ActiveObjectHelper();

    ActiveObjectHelper(const ActiveObjectHelper&) = delete;
    ActiveObjectHelper& operator=(const ActiveObjectHelper&) = delete;

    // A callback that cannot fail; an exception it throws is logged by the queue.
    TaskAddResult post(UniqueFunction<void()> callback,
                       std::chrono::milliseconds delay = std::chrono::milliseconds(0));
    // A callback that reports success and can watch for cancellation, like a task's run callback.
    TaskAddResult post(UniqueFunction<bool(RunContext&)> callback,
                       std::chrono::milliseconds delay = std::chrono::milliseconds(0));

    // Cancels every posted callback that has not started yet; running ones are asked to stop.
    void cancelPending();
    // Posted callbacks whose task is not over yet.
    std::size_t pendingCount() const;

private:
    struct Shared;
    std::shared_ptr<Shared> m_shared;
};

} // namespace Zel::Tasks
