#pragma once

#include <Zel/Json/Object.h>
#include <Zel/Platform/IServiceCaller.h>
#include <memory>
#include <string>

namespace Zel::Platform {

// Base of the typed clients of the host's services: each operation writes its params as a JSON
// object, calls the host through the plug-in's service caller and converts the returned "data".
// An error reply passes to the proxy's caller unchanged, as ServiceException.
//
// A proxy keeps a reference to the caller, so it must not outlive the plug-in that made it.
class ZEL_API ServiceProxy : public std::enable_shared_from_this<ServiceProxy> {
public:
    ServiceProxy(const IServiceCaller& caller, std::string reference);
    ServiceProxy(const ServiceProxy&) = delete;
    ServiceProxy& operator=(const ServiceProxy&) = delete;
    virtual ~ServiceProxy();

    const std::string& reference() const noexcept { return m_reference; }

protected:
    Variant call(const std::string& operation, const Json::Object& params) const {
        return m_caller.call(m_reference, operation, params.json());
    }
    Variant call(const std::string& operation) const { return m_caller.call(m_reference, operation, "{}"); }

    const IServiceCaller& caller() const noexcept { return m_caller; }

private:
    const IServiceCaller& m_caller;
    std::string m_reference;
};

} // namespace Zel::Platform
