#include <Zel/Platform/ServiceProxy.h>

namespace Zel::Platform {

ServiceProxy::ServiceProxy(const IServiceCaller& caller, std::string reference)
    : m_caller(caller), m_reference(std::move(reference)) {}

ServiceProxy::~ServiceProxy() = default;

} // namespace Zel::Platform
