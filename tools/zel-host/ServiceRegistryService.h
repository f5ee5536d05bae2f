#pragma once

#include <Zel/Platform/Service.h>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace ZelHost {

// "ServiceRegistry": which service declares which interfaces. The host enters the services of the
// plug-in's init reply and its own.
class ServiceRegistryService : public Zel::Platform::Service {
public:
    ServiceRegistryService();

    void enter(const std::string& reference, const Zel::Variant& interfaces);

private:
    std::mutex m_mutex;
    std::map<std::string, Zel::Variant> m_interfaces;
};

} // namespace ZelHost
