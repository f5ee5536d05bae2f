#include "TasksService.h"

#include "Caller.h"
#include "Params.h"

#include <Zel/Json/Json.h>
#include <Zel/Tasks/Manager.h>
#include <Zel/Tasks/Queue.h>
#include <Zel/Tasks/RunContext.h>
#include <Zel/Tasks/Task.h>
#include <Zel/Tasks/TaskOptions.h>
#include <iostream>

namespace ZelHost {

namespace {

using Zel::Platform::ServiceException;

std::chrono::milliseconds millisecondsParam(const Zel::Variant& params, const char* name,
                                            std::int64_t fallback) {
    if (optionalParam(params, name) == nullptr) return std::chrono::milliseconds(fallback);
    const std::int64_t value = integerParam(params, name);
    if (value < 0) badParameter(name);
    return std::chrono::milliseconds(value);
}

} // namespace

TasksService::TasksService(Dispatch dispatch, const std::map<std::string, int>& queues)
    : Service("Tasks"), m_dispatch(std::move(dispatch)),
      m_manager(std::make_shared<Zel::Tasks::Manager>(nullptr, nullptr, nullptr)) {
    addInterface("ITasks");
    m_manager->start();
    for (const auto& [name, threads] : queues)
        m_manager->addQueue(name, threads);
    on("addTask", [this](const Zel::Variant& params) { return addTask(params); });
    on("cancelTask", [this](const Zel::Variant& params) {
        const std::int64_t id = integerParam(params, "taskId");
        m_manager->cancelTaskAsync(static_cast<int>(id));
    });
    on("listQueues", [this]() {
        Zel::Variant names = Zel::Variant::makeVector();
        for (const auto& queue : m_manager->queues())
            names.push_back(Zel::Variant(queue->name()));
        return names;
    });
}

TasksService::~TasksService() {
    m_manager->stop();
}

Zel::Variant TasksService::addTask(const Zel::Variant& params) {
    const std::string queue = stringParam(params, "queue");
    if (!m_manager->queue(queue, Zel::Tasks::Manager::IfMissing::ReturnEmpty))
        throw ServiceException("badRequest", "Unknown queue | queue=" + queue);
    const std::chrono::milliseconds delay = millisecondsParam(params, "delayMs", 0);
    const Zel::Variant* callback = optionalParam(params, "callback");
    if (callback == nullptr || !callback->isMap()) badParameter("callback");
    const std::string service = stringParam(*callback, "service");
    const std::string operation = stringParam(*callback, "operation");
    Zel::Variant callbackParams = anyParam(*callback, "params");
    if (callbackParams.isNull()) callbackParams = Zel::Variant::makeMap();
    if (!callbackParams.isMap()) badParameter("callback.params");

    Zel::Tasks::TaskOptions options;
    if (optionalParam(params, "retryCount") != nullptr) {
        const std::int64_t retries = integerParam(params, "retryCount");
        if (retries < -1) badParameter("retryCount");
        if (retries == -1)
            options.retryIndefinitely();
        else
            options.setRetryCount(static_cast<int>(retries));
    }
    options.setRetryMinBackoff(
        millisecondsParam(params, "retryMinBackoffMs", options.retryMinBackoff().count()));
    options.setRetryMaxBackoff(
        millisecondsParam(params, "retryMaxBackoffMs", options.retryMaxBackoff().count()));
    if (optionalParam(params, "reference") != nullptr) options.setReference(stringParam(params, "reference"));
    if (optionalParam(params, "uniqueness") != nullptr) {
        const std::string uniqueness = stringParam(params, "uniqueness");
        if (uniqueness == "waiting")
            options.setUniqueness(Zel::Tasks::Uniqueness::Waiting);
        else if (uniqueness == "waitingOrRunning")
            options.setUniqueness(Zel::Tasks::Uniqueness::WaitingOrRunning);
        else
            badParameter("uniqueness");
    }
    const Zel::Variant* nameValue = optionalParam(params, "name");
    const std::string name =
        nameValue != nullptr && nameValue->isString() ? nameValue->_string() : service + "." + operation;

    const std::string owner = CallerScope::current();
    auto task = std::make_shared<Zel::Tasks::Task>(
        name, [this, owner, service, operation, callbackParams, name](Zel::Tasks::RunContext&) {
            const std::string reply = m_dispatch(owner, service, operation, callbackParams.toJson());
            try {
                if (static_cast<std::int64_t>(Zel::Json::parse(reply)["result"]) == 0) return true;
            } catch (const std::exception&) {
            }
            std::cerr << "zel-host: task " << name << " failed: " << reply << '\n';
            return false;
        });
    task->setOptions(options);
    const Zel::Tasks::TaskAddResult added = m_manager->addTask(task, queue, delay);
    if (!added.existingTask()) {
        const std::lock_guard lock(m_mutex);
        m_tasksOf.emplace(owner, added.id());
    }
    Zel::Variant reply = Zel::Variant::makeMap();
    reply.setAt("taskId", added.id());
    reply.setAt("existingTask", added.existingTask());
    return reply;
}

void TasksService::cancelAllOf(const std::string& owner) {
    std::vector<int> ids;
    {
        const std::lock_guard lock(m_mutex);
        const auto [first, last] = m_tasksOf.equal_range(owner);
        for (auto it = first; it != last; ++it)
            ids.push_back(it->second);
        m_tasksOf.erase(first, last);
    }
    for (const int id : ids) {
        try {
            m_manager->cancelTask(id);
        } catch (const std::exception&) {
            // Finished and swept already.
        }
    }
}

} // namespace ZelHost
