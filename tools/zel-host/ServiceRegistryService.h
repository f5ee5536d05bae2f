#pragma once

#include <Zel/Platform/Service.h>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace ZelHost {

// "ServiceRegistry": which service declares which interfaces. The host enters the services of the
// plug-ins' init replies and its own, and takes a plug-in's out when it goes.
class ServiceRegistryService : public Zel::Platform::Service {
public:
    ServiceRegistryService();

    void enter(const std::string& reference, const Zel::Variant& interfaces);
    void remove(const std::string& reference);

private:
    std::mutex m_mutex;
    std::map<std::string, Zel::Variant> m_interfaces;
};

} // namespace ZelHost
