#pragma once

#include <Zel/Export.h>
#include <Zel/Variant.h>
#include <string>

namespace Zel::Platform {

// Calls an operation of another service and returns the "data" of its reply; an error reply
// arrives as ServiceException.
class ZEL_API IServiceCaller {
public:
    virtual ~IServiceCaller();
    virtual Variant call(const std::string& service, const std::string& operation,
                         const std::string& params) const = 0;
};

} // namespace Zel::Platform
