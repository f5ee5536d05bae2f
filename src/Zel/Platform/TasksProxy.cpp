#include <Zel/Json/Json.h>
#include <Zel/Platform/CallbacksService.h>
#include <Zel/Platform/Plugin.h>
#include <Zel/Platform/ServiceException.h>
#include <Zel/Platform/TasksProxy.h>
#include <Zel/Tasks/RunContext.h>
#include <Zel/Tasks/Task.h>
#include <atomic>

namespace Zel::Platform {

namespace {

class RemoteRunContext : public Tasks::RunContext {
public:
    explicit RemoteRunContext(int id) : m_id(id) {}
    int id() const override { return m_id; }
    bool canceled() const override { return false; }

private:
    int m_id;
};

} // namespace

TasksProxy::TasksProxy(Plugin& plugin)
    : ServiceProxy(plugin.serviceCaller(), serviceReference), m_plugin(plugin) {}
TasksProxy::~TasksProxy() = default;

Tasks::TaskAddResult TasksProxy::addTask(const Operation& callback, const std::string& queueName,
                                         std::chrono::milliseconds delay, const Tasks::TaskOptions& options) {
    Json::Object target;
    target.add("service", callback.service).add("operation", callback.operation);
    target.addJson("params", callback.params.empty() ? std::string("{}") : callback.params);
    Json::Object params;
    params.add("queue", queueName).add("delayMs", static_cast<std::int64_t>(delay.count()));
    params.addJson("callback", target.json());
    params.add("retryCount", options.retryCount())
        .add("retryMinBackoffMs", static_cast<std::int64_t>(options.retryMinBackoff().count()))
        .add("retryMaxBackoffMs", static_cast<std::int64_t>(options.retryMaxBackoff().count()))
        .add("uniqueness",
             options.uniqueness() == Tasks::Uniqueness::WaitingOrRunning ? "waitingOrRunning" : "waiting");
    if (!options.reference().empty()) params.add("reference", options.reference());
    const Variant added = call("addTask", params);
    return Tasks::TaskAddResult(static_cast<int>(added["taskId"]), static_cast<bool>(added["existingTask"]));
}

Tasks::TaskAddResult TasksProxy::addTask(std::shared_ptr<Tasks::Task> task, const std::string& queueName,
                                         std::chrono::milliseconds delay) {
    struct Link {
        std::atomic<int> taskId{0};
        std::atomic<std::int64_t> callbackId{0};
    };
    const auto link = std::make_shared<Link>();
    const std::shared_ptr<CallbacksService> callbacks = m_plugin.callbacks();
    // A weak link: the callback lives in the service it would otherwise keep alive.
    const Operation operation = callbacks->add([task, link, weak = std::weak_ptr(callbacks)](const Variant&) {
        RemoteRunContext context(link->taskId.load());
        if (!task->runCallback()(context))
            throw ServiceException("taskFailed", "The task's run failed | task=" + task->name());
        // A run that succeeded is the last one.
        if (const auto service = weak.lock()) service->remove(link->callbackId.load());
    });
    link->callbackId = static_cast<std::int64_t>(Json::parse(operation.params)["callbackId"]);
    const Tasks::TaskAddResult added = addTask(operation, queueName, delay, task->options());
    link->taskId = added.id();
    if (added.existingTask()) callbacks->remove(link->callbackId.load());
    return added;
}

void TasksProxy::cancelTask(int id) {
    call("cancelTask", Json::Object().add("taskId", id));
}

bool TasksProxy::cancelTaskAsync(int id) {
    call("cancelTask", Json::Object().add("taskId", id));
    return false;
}

std::vector<std::string> TasksProxy::queues() const {
    return call("listQueues").toVector<std::string>();
}

} // namespace Zel::Platform
