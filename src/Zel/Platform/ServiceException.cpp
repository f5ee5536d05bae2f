#include <Zel/Detail/VariantAccess.h>
#include <Zel/Json/Json.h>
#include <Zel/Json/Object.h>
#include <Zel/Platform/ServiceException.h>

namespace Zel::Platform {

namespace {

std::string stringMember(const Variant& reply, const char* key) {
    if (!reply.isMap()) return {};
    const Variant* value = reply.find(key);
    if (value == nullptr || value->isNull()) return {};
    return value->isString() ? Zel::Detail::VariantAccess::string(*value) : value->toJson();
}

} // namespace

ServiceException::ServiceException(std::string errorRef, std::string message, Variant data,
                                   Operation&& operation)
    : GenericException(std::move(message)), m_errorRef(std::move(errorRef)), m_data(std::move(data)),
      m_operation(std::move(operation)) {}

ServiceException::ServiceException(const Variant& reply) : GenericException(stringMember(reply, "errMsg")) {
    const bool isMap = reply.isMap();
    const Variant* errorRef = isMap ? reply.find("errRef") : nullptr;
    m_errorRef = errorRef != nullptr ? stringMember(reply, "errRef") : "internalServerError";
    if (const Variant* data = isMap ? reply.find("data") : nullptr) m_data = *data;
    m_operation.service = stringMember(reply, "service");
    m_operation.operation = stringMember(reply, "operation");
}

ServiceException::ServiceException(const ServiceException&) = default;
ServiceException::ServiceException(ServiceException&&) noexcept = default;
ServiceException& ServiceException::operator=(const ServiceException&) = default;
ServiceException& ServiceException::operator=(ServiceException&&) noexcept = default;
ServiceException::~ServiceException() = default;

std::string ServiceException::toJson() const {
    Json::Object reply;
    reply.addJson("result", std::to_string(errorResult));
    reply.addJson("errMsg", Json::_encodeString(message()));
    reply.addJson("errRef", Json::_encodeString(m_errorRef));
    reply.add("data", m_data);
    reply.addJson("service", Json::_encodeString(m_operation.service));
    reply.addJson("operation", Json::_encodeString(m_operation.operation));
    return reply.json();
}

ServiceException serviceNotStarted(const std::string& reference) {
    return ServiceException("serviceNotStarted", "Service is not started | reference=" + reference);
}

} // namespace Zel::Platform
