#pragma once

#include <Zel/GenericException.h>
#include <Zel/Platform/Operation.h>
#include <Zel/Variant.h>
#include <string>

namespace Zel::Platform {

// A failed call, in either direction. Its JSON form is the error reply of the call envelope:
//   {"result":1359,"errMsg":...,"errRef":...,"data":...,"service":...,"operation":...}
class ZEL_API ServiceException : public GenericException {
public:
    static constexpr int errorResult = 1359;

    ServiceException(std::string errorRef, std::string message, Variant data = {},
                     Operation&& operation = {});
    // Rebuilds the exception from an error reply; "errRef" defaults to "internalServerError".
    explicit ServiceException(const Variant& reply);

    ServiceException(const ServiceException&);
    ServiceException(ServiceException&&) noexcept;
    ServiceException& operator=(const ServiceException&);
    ServiceException& operator=(ServiceException&&) noexcept;
    ~ServiceException() override;

    const std::string& errorRef() const noexcept { return m_errorRef; }
    const Variant& data() const noexcept { return m_data; }
    const Operation& operation() const noexcept { return m_operation; }
    void setOperation(Operation&& operation) { m_operation = std::move(operation); }

    // Only the service and operation names of the failed call are sent, not its params.
    std::string toJson() const;

private:
    std::string m_errorRef;
    Variant m_data;
    Operation m_operation;
};

// The error of a startable service that is asked to work while stopped.
ZEL_API ServiceException serviceNotStarted(const std::string& reference);

} // namespace Zel::Platform
