#pragma once

#include <Zel/Platform/Service.h>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace Zel::Tasks {
class Manager;
}

namespace ZelHost {

// "Tasks": plug-ins add tasks to the host's named queues. A task calls an operation back (usually
// the plug-in's own callbacks service) after its delay; an error reply counts as a failed run and
// is retried as the task's options say, and a reference keeps duplicates out of the queue.
class TasksService : public Zel::Platform::Service {
public:
    // Makes a call as `caller` and returns the reply text; never throws.
    using Dispatch = std::function<std::string(const std::string& caller, const std::string& service,
                                               const std::string& operation, const std::string& params)>;

    // `queues`: queue name -> how many of its tasks may run at once.
    TasksService(Dispatch dispatch, const std::map<std::string, int>& queues);
    ~TasksService() override;

    // Cancels the tasks of `owner` (a plug-in's name) that have not finished.
    void cancelAllOf(const std::string& owner);

private:
    Zel::Variant addTask(const Zel::Variant& params);

    Dispatch m_dispatch;
    std::shared_ptr<Zel::Tasks::Manager> m_manager;
    std::mutex m_mutex;
    std::multimap<std::string, int> m_tasksOf; // owner -> task ids
};

} // namespace ZelHost
