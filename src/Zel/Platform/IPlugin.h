#pragma once

#include <Zel/Export.h>
#include <string>

namespace Zel {
class ServiceLocator;
}

namespace Zel::Platform {

class IServiceCaller;

// What a service sees of the plug-in that holds it.
class ZEL_API IPlugin {
public:
    virtual ~IPlugin();
    virtual IServiceCaller& serviceCaller() = 0;
    virtual ServiceLocator& serviceLocator() = 0;
    virtual std::string name() const = 0;
    virtual std::string description() const = 0;
};

} // namespace Zel::Platform
