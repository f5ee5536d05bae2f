#include "Host.h"

#include "CacheService.h"
#include "Caller.h"
#include "DataStoreService.h"
#include "Database.h"
#include "EventsService.h"
#include "MessagesService.h"
#include "PlatformLogService.h"
#include "PluginLibrary.h"
#include "ServiceRegistryService.h"
#include "TasksService.h"

#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <Zel/Log/LogFile.h>
#include <Zel/Platform/PluginModule.h>
#include <Zel/Platform/ReplyAllocator.h>
#include <Zel/Platform/ServiceException.h>
#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <utility>

namespace ZelHost {

struct Host::Slot {
    std::string module;
    // The plug-in's name once initialised: whose transactions and tasks are whose.
    std::string name;
    // Shared with the calls in flight, so that a module going away does not pull it from under them.
    std::shared_ptr<PluginLibrary> library;
    std::vector<std::string> services;
};

namespace {

std::string errorReply(const std::string& errRef, const std::string& message, const std::string& service,
                       const std::string& operation) {
    return Zel::Platform::ServiceException(errRef, message, {},
                                           Zel::Platform::Operation{service, operation, {}})
        .toJson();
}

std::string hexAddress(void (*callback)(const char*, std::uint64_t, const char*, std::uint64_t, const char*,
                                        std::uint64_t, char**, std::uint64_t*)) {
    char address[32];
    std::snprintf(address, sizeof address, "%llx",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(callback)));
    return address;
}

} // namespace

std::atomic<Host*> Host::s_instance{nullptr};

template <std::size_t Index>
void Host::callback(const char* service, std::uint64_t serviceLength, const char* operation,
                    std::uint64_t operationLength, const char* params, std::uint64_t paramsLength,
                    char** reply, std::uint64_t* replyLength) {
    fromPlugin(Index, service, serviceLength, operation, operationLength, params, paramsLength, reply,
               replyLength);
}

Host::Host(const Settings& settings) : m_settings(settings) {
    Host* expected = nullptr;
    if (!s_instance.compare_exchange_strong(expected, this))
        throw Zel::GenericException("zel-host: only one host per process");
    try {
        std::filesystem::create_directories(m_settings.dataDirectory);
        Zel::Log::LogFile::Options logOptions;
        logOptions.maxFileSize = m_settings.logMaxBytes;
        logOptions.keptFiles = static_cast<unsigned>(m_settings.logKeptFiles);
        m_logFile = std::make_shared<Zel::Log::LogFile>(
            m_settings.logFile.empty() ? std::filesystem::path(m_settings.dataDirectory) / "zel-host.log"
                                       : std::filesystem::path(m_settings.logFile),
            logOptions);
        m_database = std::make_shared<Database>(
            m_settings.databaseConnection.empty()
                ? Database::embeddedConnectionString(m_settings.dataDirectory, m_settings.forcedWrites)
                : m_settings.databaseConnection,
            m_settings.maxConnections);
        m_dataStore = std::make_shared<DataStoreService>(m_database, m_settings.transactionIdleTimeout);
        m_registry = std::make_shared<ServiceRegistryService>();
        const auto deliver = [this](const std::string& service, const std::string& operation,
                                    const std::string& params) {
            return handle(CallerScope::current(), service, operation, params);
        };
        m_tasks = std::make_shared<TasksService>(
            [this](const std::string& caller, const std::string& service, const std::string& operation,
                   const std::string& params) { return handle(caller, service, operation, params); },
            m_settings.taskQueues);
        const std::shared_ptr<Zel::Platform::Service> services[] = {
            m_dataStore,
            std::make_shared<EventsService>(deliver),
            std::make_shared<MessagesService>(m_database),
            std::make_shared<PlatformLogService>(m_logFile),
            m_registry,
            m_tasks,
            std::make_shared<CacheService>(m_settings.cacheCapacity, m_settings.cacheTimeToLive)};
        for (const auto& service : services) {
            m_services.emplace(service->reference(), service);
            m_registry->enter(service->reference(), service->interfaces());
        }
        for (std::size_t i = 0; i < m_settings.threads; ++i)
            m_pool.emplace_back([this] { runPool(); });
    } catch (...) {
        s_instance.store(nullptr);
        throw;
    }
}

Host::~Host() {
    unloadAll();
    {
        const std::lock_guard lock(m_poolMutex);
        m_poolStopping = true;
    }
    m_poolWake.notify_all();
    for (auto& thread : m_pool)
        thread.join();
    // Tasks stop before the services they call back go away.
    m_tasks.reset();
    m_services.clear();
    s_instance.store(nullptr);
}

std::string Host::load(const Settings::PluginModule& module, std::string& initReply) {
    if (m_slotCount == maxPlugins)
        return "cannot load plug-in module " + module.module + ": the host takes at most " +
               std::to_string(maxPlugins) + " plug-ins";
    auto slot = std::make_unique<Slot>();
    slot->module = module.module;
    slot->name = module.module;
    try {
        slot->library = std::make_shared<PluginLibrary>(module.module);
    } catch (const std::exception& error) {
        return error.what();
    }
    static constexpr auto callbacks = callbackTable(std::make_index_sequence<maxPlugins>());
    Zel::Variant document = module.init.isMap() ? module.init : Zel::Variant::makeMap();
    const std::size_t index = m_slotCount;
    document.setAt("platformCallback", hexAddress(callbacks[index]));
    // Entered before init so that the callback finds its slot; taken out again when init fails.
    m_slots[index] = std::move(slot);
    Slot& loaded = *m_slots[index];
    const auto refuse = [&](const std::string& reason) {
        m_slots[index].reset();
        return "plug-in module " + module.module + " " + reason;
    };
    initReply = loaded.library->init(document.toJson());
    Zel::Variant reply;
    try {
        reply = Zel::Json::parse(initReply);
    } catch (const std::exception& error) {
        return refuse("returned a malformed init reply: " + std::string(error.what()));
    }
    if (!reply.isMap() || !reply.contains("result") || !reply["result"].isInteger())
        return refuse("returned an init reply without a result");
    if (static_cast<std::int64_t>(reply["result"]) != 0) {
        const Zel::Variant* message = reply.find("errMsg");
        return refuse("refused init: " +
                      (message != nullptr && message->isString() ? message->_string() : initReply));
    }
    const Zel::Variant* data = reply.find("data");
    if (data == nullptr || !data->isMap() || !data->contains("name") || !(*data)["name"].isString() ||
        !data->contains("services") || !(*data)["services"].isVector())
        return refuse("returned an init reply without its name and services");
    const std::string name = (*data)["name"];
    for (std::size_t i = 0; i < index; ++i)
        if (m_slots[i] && m_slots[i]->name == name) {
            loaded.library->deinit();
            return refuse("has the name of a plug-in already loaded | name=" + name);
        }
    std::vector<std::pair<std::string, Zel::Variant>> services;
    for (const auto& entry : (*data)["services"]) {
        const Zel::Variant& service = entry.value();
        if (!service.isMap() || !service.contains("reference") || !service["reference"].isString()) continue;
        const std::string reference = service["reference"];
        if (knows(reference)) {
            loaded.library->deinit();
            return refuse("declares a service the host already has | service=" + reference);
        }
        services.emplace_back(reference, service.contains("interfaces") ? service["interfaces"]
                                                                        : Zel::Variant::makeVector());
    }
    loaded.name = name;
    {
        const std::unique_lock lock(m_routesMutex);
        for (auto& [reference, interfaces] : services) {
            m_routes.emplace(reference, index);
            loaded.services.push_back(reference);
        }
    }
    for (auto& [reference, interfaces] : services)
        m_registry->enter(reference, interfaces);
    ++m_slotCount;
    return {};
}

void Host::unload(Slot& slot, std::vector<std::string>& replies) {
    if (!slot.library) return;
    // Its tasks must not call it back half gone.
    m_tasks->cancelAllOf(slot.name);
    replies.push_back(slot.library->deinit());
    m_dataStore->rollbackAllOf(slot.name);
    {
        const std::unique_lock lock(m_routesMutex);
        for (const std::string& reference : slot.services)
            m_routes.erase(reference);
        slot.library.reset();
    }
    for (const std::string& reference : slot.services)
        m_registry->remove(reference);
}

std::vector<std::string> Host::unloadAll() {
    std::vector<std::string> replies;
    for (std::size_t i = m_slotCount; i-- > 0;)
        if (m_slots[i]) unload(*m_slots[i], replies);
    return replies;
}

std::string Host::call(const std::string& service, const std::string& operation, const std::string& params) {
    return handle({}, service, operation, params);
}

bool Host::knows(const std::string& service) const {
    const std::shared_lock lock(m_routesMutex);
    return m_services.contains(service) || m_routes.contains(service);
}

std::vector<std::string> Host::serviceNames() const {
    std::vector<std::string> names;
    for (const auto& [name, service] : m_services)
        names.push_back(name);
    const std::shared_lock lock(m_routesMutex);
    for (const auto& [name, slot] : m_routes)
        names.push_back(name);
    std::sort(names.begin(), names.end());
    return names;
}

void Host::post(std::function<void()> work) {
    {
        const std::lock_guard lock(m_poolMutex);
        m_work.push_back(std::move(work));
    }
    m_poolWake.notify_one();
}

void Host::runPool() {
    for (;;) {
        std::function<void()> work;
        {
            std::unique_lock lock(m_poolMutex);
            m_poolWake.wait(lock, [this] { return m_poolStopping || !m_work.empty(); });
            if (m_work.empty()) return;
            work = std::move(m_work.front());
            m_work.pop_front();
        }
        try {
            work();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "zel-host: work on the pool failed: %s\n", error.what());
        }
    }
}

std::string Host::handle(const std::string& caller, const std::string& service, const std::string& operation,
                         const std::string& params) {
    const CallerScope scope(caller);
    try {
        if (const auto it = m_services.find(service); it != m_services.end())
            return Zel::Platform::PluginModule::replyText(it->second->call(operation, params));
        std::shared_ptr<PluginLibrary> library;
        std::string module;
        {
            const std::shared_lock lock(m_routesMutex);
            if (const auto route = m_routes.find(service); route != m_routes.end()) {
                library = m_slots[route->second]->library;
                module = m_slots[route->second]->module;
            }
        }
        if (library) return forward(module, *library, service, operation, params);
        return errorReply("unknownService", "Unknown service: " + service, service, operation);
    } catch (...) {
        return Zel::Platform::PluginModule::errorReplyText(service, operation);
    }
}

std::string Host::forward(const std::string& module, const PluginLibrary& library, const std::string& service,
                          const std::string& operation, const std::string& params) {
    const std::string reply = library.call(service, operation, params);
    // What a plug-in hands back goes on to another plug-in or the operator: it must be a reply.
    try {
        const Zel::Variant parsed = Zel::Json::parse(reply);
        if (parsed.isMap() && parsed.contains("result") && parsed["result"].isInteger()) {
            // An error reply without an errRef is an exception the plug-in did not mean to throw.
            if (static_cast<std::int64_t>(parsed["result"]) == Zel::Platform::ServiceException::errorResult && !parsed.contains("errRef")) {
                const Zel::Variant* message = parsed.find("errMsg");
                std::fprintf(stderr, "zel-host: plug-in module %s failed in %s.%s: %s\n", module.c_str(),
                             service.c_str(), operation.c_str(),
                             message != nullptr ? message->toJson().c_str() : reply.c_str());
            }
            return reply;
        }
    } catch (const std::exception&) {
    }
    std::fprintf(stderr, "zel-host: plug-in module %s returned a malformed reply to %s.%s\n", module.c_str(),
                 service.c_str(), operation.c_str());
    return errorReply("badReply", "The plug-in returned a malformed reply | module=" + module, service,
                      operation);
}

void Host::fromPlugin(std::size_t slot, const char* service, std::uint64_t serviceLength,
                      const char* operation, std::uint64_t operationLength, const char* params,
                      std::uint64_t paramsLength, char** reply, std::uint64_t* replyLength) noexcept {
    try {
        Host* host = s_instance.load();
        const std::string text =
            host == nullptr || slot >= maxPlugins || !host->m_slots[slot]
                ? R"({"result":)" + std::to_string(Zel::Platform::ServiceException::errorResult) +
                      R"(,"errMsg":"The host is shutting down"})"
                : host->handle(host->m_slots[slot]->name, std::string(service, serviceLength),
                               std::string(operation, operationLength), std::string(params, paramsLength));
        Zel::Platform::storeReply(text, reply, replyLength);
    } catch (...) {
        *reply = nullptr;
        *replyLength = 0;
    }
}

} // namespace ZelHost
