#include "Host.h"

#include "DataStoreService.h"
#include "EventsService.h"
#include "MessagesService.h"
#include "PlatformLogService.h"

#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <Zel/Platform/PluginModule.h>
#include <Zel/Platform/ReplyAllocator.h>
#include <Zel/Platform/ServiceException.h>
#include <cstdio>

namespace ZelHost {

std::atomic<Host*> Host::s_instance{nullptr};

Host::Host() : m_registry(std::make_shared<ServiceRegistryService>()) {
    Host* expected = nullptr;
    if (!s_instance.compare_exchange_strong(expected, this))
        throw Zel::GenericException("zel-host: only one host per process");

    const auto deliver = [this](const std::string& service, const std::string& operation,
                                const std::string& params) {
        const PluginLibrary* plugin = m_plugin.load();
        if (plugin == nullptr) return std::string(R"({"result":1359,"errMsg":"No plug-in attached"})");
        return plugin->call(service, operation, params);
    };
    const std::shared_ptr<Zel::Platform::Service> services[] = {
        std::make_shared<DataStoreService>(), std::make_shared<EventsService>(deliver),
        std::make_shared<MessagesService>(), std::make_shared<PlatformLogService>(), m_registry};
    for (const auto& service : services) {
        m_services.emplace(service->reference(), service);
        m_registry->enter(service->reference(), service->interfaces());
    }
}

Host::~Host() {
    s_instance.store(nullptr);
}

std::string Host::initDocument(const std::string& extra) const {
    Zel::Variant document = extra.empty() ? Zel::Variant::makeMap() : Zel::Json::parse(extra);
    if (!document.isMap()) throw Zel::GenericException("zel-host: the init document must be a JSON object");
    char address[32];
    std::snprintf(address, sizeof address, "%llx",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(&Host::callback)));
    document.setAt("platformCallback", std::string(address));
    return document.toJson();
}

void Host::registerServices(const Zel::Variant& initReply) {
    const Zel::Variant* data = initReply.isMap() ? initReply.find("data") : nullptr;
    const Zel::Variant* services = data != nullptr && data->isMap() ? data->find("services") : nullptr;
    if (services == nullptr || !services->isVector()) return;
    for (const auto& entry : *services) {
        const Zel::Variant& service = entry.value();
        if (service.isMap() && service.contains("reference") && service["reference"].isString())
            m_registry->enter(service["reference"], service.contains("interfaces")
                                                        ? service["interfaces"]
                                                        : Zel::Variant::makeVector());
    }
}

std::string Host::handle(const std::string& service, const std::string& operation,
                         const std::string& params) {
    try {
        const auto it = m_services.find(service);
        if (it == m_services.end())
            throw Zel::Platform::ServiceException("unknownService", "Unknown service: " + service, {},
                                                  Zel::Platform::Operation{service, operation, {}});
        return Zel::Platform::PluginModule::replyText(it->second->call(operation, params));
    } catch (...) {
        return Zel::Platform::PluginModule::errorReplyText(service, operation);
    }
}

void Host::callback(const char* service, std::uint64_t serviceLength, const char* operation,
                    std::uint64_t operationLength, const char* params, std::uint64_t paramsLength,
                    char** reply, std::uint64_t* replyLength) {
    try {
        Host* host = s_instance.load();
        const std::string text =
            host == nullptr
                ? std::string(R"({"result":1359,"errMsg":"The host is shutting down"})")
                : host->handle(std::string(service, serviceLength), std::string(operation, operationLength),
                               std::string(params, paramsLength));
        Zel::Platform::storeReply(text, reply, replyLength);
    } catch (...) {
        *reply = nullptr;
        *replyLength = 0;
    }
}

} // namespace ZelHost
