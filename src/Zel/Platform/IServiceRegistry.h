#pragma once

#include <Zel/Export.h>
#include <string>
#include <vector>

namespace Zel::Platform {

// Service discovery: which services, of any plug-in in the host, declare an interface.
class ZEL_API IServiceRegistry {
public:
    virtual ~IServiceRegistry();
    virtual void registerService(const std::string& reference,
                                 const std::vector<std::string>& interfaces) = 0;
    // False when the reference was not registered.
    virtual bool unregisterService(const std::string& reference) = 0;
    // The references of the services that declare `interfaceName`, in byte-wise order.
    virtual std::vector<std::string> lookup(const std::string& interfaceName) = 0;
};

} // namespace Zel::Platform
