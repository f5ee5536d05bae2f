#include "ServiceRegistryService.h"

#include "Params.h"

namespace ZelHost {

ServiceRegistryService::ServiceRegistryService() : Service("ServiceRegistry") {
    addInterface("IServiceRegistry");
    on("register", [this](const Zel::Variant& params) {
        const std::string reference = stringParam(params, "reference");
        Zel::Variant interfaces = anyParam(params, "interfaces");
        if (interfaces.isNull()) interfaces = Zel::Variant::makeVector();
        if (!interfaces.isVector()) badParameter("interfaces");
        for (const auto& name : interfaces)
            if (!name.value().isString()) badParameter("interfaces");
        enter(reference, interfaces);
    });
    on("unregister", [this](const Zel::Variant& params) {
        const std::string reference = stringParam(params, "reference");
        const std::lock_guard lock(m_mutex);
        return m_interfaces.erase(reference) > 0;
    });
    on("lookup", [this](const Zel::Variant& params) {
        const Zel::Variant name(stringParam(params, "interface"));
        Zel::Variant references = Zel::Variant::makeVector();
        const std::lock_guard lock(m_mutex);
        for (const auto& [reference, interfaces] : m_interfaces)
            if (interfaces.contains(name)) references.push_back(Zel::Variant(reference));
        return references;
    });
}

void ServiceRegistryService::enter(const std::string& reference, const Zel::Variant& interfaces) {
    const std::lock_guard lock(m_mutex);
    m_interfaces.insert_or_assign(reference, interfaces);
}

void ServiceRegistryService::remove(const std::string& reference) {
    const std::lock_guard lock(m_mutex);
    m_interfaces.erase(reference);
}

} // namespace ZelHost
