#pragma once

#include <Zel/Platform/IServiceRegistry.h>
#include <Zel/Platform/ServiceProxy.h>

namespace Zel::Platform {

// IServiceRegistry over the host's service "ServiceRegistry" (see docs/host-services.md). The
// host registers the services of every plug-in's init reply by itself.
class ZEL_API ServiceRegistryProxy : public ServiceProxy, public IServiceRegistry {
public:
    static constexpr const char* serviceReference = "ServiceRegistry";

    explicit ServiceRegistryProxy(const IServiceCaller& caller);
    ~ServiceRegistryProxy() override;

    void registerService(const std::string& reference, const std::vector<std::string>& interfaces) override;
    bool unregisterService(const std::string& reference) override;
    std::vector<std::string> lookup(const std::string& interfaceName) override;
};

} // namespace Zel::Platform
