#pragma once

#include "PluginLibrary.h"
#include "ServiceRegistryService.h"

#include <Zel/Platform/Service.h>
#include <atomic>
#include <map>
#include <memory>
#include <string>

namespace ZelHost {

// The host side of the call envelope: the services a plug-in reaches through its platform
// callback. One Host serves one process; its callback finds it through a process-wide pointer,
// since a plain function pointer carries no state.
class Host {
public:
    Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    ~Host();

    // The init document: "platformCallback" plus the members of `extra` (a JSON object or empty).
    std::string initDocument(const std::string& extra) const;
    // Lets events reach the plug-in.
    void attach(const PluginLibrary* plugin) noexcept { m_plugin.store(plugin); }
    // Enters the services of an init reply into the registry.
    void registerServices(const Zel::Variant& initReply);

    // Never throws: an error is the error reply.
    std::string handle(const std::string& service, const std::string& operation, const std::string& params);

private:
    static void callback(const char* service, std::uint64_t serviceLength, const char* operation,
                         std::uint64_t operationLength, const char* params, std::uint64_t paramsLength,
                         char** reply, std::uint64_t* replyLength);

    static std::atomic<Host*> s_instance;

    std::map<std::string, std::shared_ptr<Zel::Platform::Service>, std::less<>> m_services;
    std::shared_ptr<ServiceRegistryService> m_registry;
    std::atomic<const PluginLibrary*> m_plugin{nullptr};
};

} // namespace ZelHost
