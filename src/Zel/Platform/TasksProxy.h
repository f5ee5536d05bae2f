#pragma once

#include <Zel/Platform/Operation.h>
#include <Zel/Platform/ServiceProxy.h>
#include <Zel/Tasks/IManager.h>
#include <Zel/Tasks/TaskAddResult.h>
#include <Zel/Tasks/TaskOptions.h>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace Zel::Platform {

class Plugin;

// The host's task queues, service "Tasks" (see docs/host-services.md), and a Tasks::IManager over
// them: a task added here runs in this plug-in when the host's queue starts it, through a callback
// of the plug-in's callbacks service. The host applies the delay, the retries (a run that returns
// false or throws is an error reply, retried as the options say) and the uniqueness of the
// reference; the task's finished callback is not called.
//
// It keeps a reference to the plug-in, which must outlive it.
class ZEL_API TasksProxy : public ServiceProxy, public Tasks::IManager {
public:
    static constexpr const char* serviceReference = "Tasks";

    explicit TasksProxy(Plugin& plugin);
    ~TasksProxy() override;

    // Runs `task` in this plug-in on the host's queue `queueName` after `delay`.
    Tasks::TaskAddResult addTask(std::shared_ptr<Tasks::Task> task, const std::string& queueName,
                                 std::chrono::milliseconds delay) override;
    // Calls `callback` (any service's operation) from the host's queue after `delay`.
    Tasks::TaskAddResult addTask(const Operation& callback, const std::string& queueName,
                                 std::chrono::milliseconds delay, const Tasks::TaskOptions& options = {});
    // Both ask the host to cancel; the host does not wait for a run in progress.
    void cancelTask(int id) override;
    bool cancelTaskAsync(int id) override;
    std::vector<std::string> queues() const;

private:
    Plugin& m_plugin;
};

} // namespace Zel::Platform
