#include <Zel/Detail/VariantAccess.h>
#include <Zel/Detail/VariantMap.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Platform/IPlugin.h>
#include <Zel/Platform/Service.h>
#include <Zel/Platform/ServiceException.h>
#include <iterator>

namespace Zel::Platform {

Service::Service() : m_interfaces(Variant::makeVector()) {}
Service::Service(std::string reference)
    : m_reference(std::move(reference)), m_interfaces(Variant::makeVector()) {}
Service::Service(const Service&) = default;
Service::Service(Service&&) noexcept = default;
Service& Service::operator=(const Service&) = default;
Service& Service::operator=(Service&&) noexcept = default;
Service::~Service() = default;

Variant Service::call(const std::string& operation, const std::string& params) {
    const auto it = m_operations.find(operation);
    if (it == m_operations.end())
        throw ServiceException(m_reference, "Unknown operation | " + m_reference + "." + operation);
    return it->second(params);
}

Service& Service::addInterface(const std::string& name) {
    m_interfaces.push_back(Variant(name));
    return *this;
}

IPlugin& Service::plugin() const {
    if (m_plugin == nullptr) ZEL_THROW_INVALID_OPERATION();
    return *m_plugin;
}

void Service::addOperation(const std::string& name, Handler&& handler) {
    m_operations.insert_or_assign(name, std::move(handler));
}

Variant Service::resultSuccess() {
    Variant reply = Variant::makeMap();
    reply.setAt("result", 0);
    return reply;
}

Variant Service::resultSuccess(const Variant& data) {
    // Every successful call builds one of these: both members in one go, already in key order.
    Zel::Detail::VariantMap::Entry entries[] = {{"data", data}, {"result", Variant(0)}};
    return Zel::Detail::VariantAccess::adoptMap(
        Zel::Detail::VariantMap::fromSorted(std::begin(entries), std::end(entries)));
}

Variant Service::resultSuccessJson(const std::string& json) {
    std::string reply;
    reply.reserve(json.size() + 20);
    reply += "{\"result\":0,\"data\":";
    reply += json;
    reply += '}';
    return Variant(std::move(reply));
}

} // namespace Zel::Platform
