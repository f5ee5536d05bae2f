#include <Zel/Platform/ServiceRegistryProxy.h>

namespace Zel::Platform {

ServiceRegistryProxy::ServiceRegistryProxy(const IServiceCaller& caller)
    : ServiceProxy(caller, serviceReference) {}
ServiceRegistryProxy::~ServiceRegistryProxy() = default;

void ServiceRegistryProxy::registerService(const std::string& reference,
                                           const std::vector<std::string>& interfaces) {
    Variant list = Variant::makeVector();
    for (const std::string& name : interfaces)
        list.push_back(Variant(name));
    call("register", Json::Object().add("reference", reference).add("interfaces", list));
}

bool ServiceRegistryProxy::unregisterService(const std::string& reference) {
    return static_cast<bool>(call("unregister", Json::Object().add("reference", reference)));
}

std::vector<std::string> ServiceRegistryProxy::lookup(const std::string& interfaceName) {
    return call("lookup", Json::Object().add("interface", interfaceName)).toVector<std::string>();
}

} // namespace Zel::Platform
