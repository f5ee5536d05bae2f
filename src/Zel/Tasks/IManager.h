#pragma once

#include <Zel/Export.h>
#include <Zel/Tasks/TaskAddResult.h>
#include <chrono>
#include <memory>
#include <string>

namespace Zel::Tasks {

class Task;

// What executors and other producers of tasks need of a task manager; the in-process Manager
// implements it, and so can a proxy to a manager elsewhere.
class ZEL_API IManager {
public:
    virtual ~IManager();

    // Adds the task to the named queue, to start no earlier than `delay` from now.
    virtual TaskAddResult addTask(std::shared_ptr<Task> task, const std::string& queueName,
                                  std::chrono::milliseconds delay) = 0;
    // Cancels and waits until the task's run has left the queue (it may still be finishing).
    virtual void cancelTask(int id) = 0;
    // Requests cancellation; true when the run already left the queue's waiting and running lists.
    virtual bool cancelTaskAsync(int id) = 0;

protected:
    IManager() = default;
    IManager(const IManager&) = default;
    IManager& operator=(const IManager&) = default;
};

} // namespace Zel::Tasks
