#pragma once

#include <Zel/Export.h>

#include <string>

namespace Zel::Json {

// Something that writes itself as JSON text, for use with Object::addJson and Array::addJson.
class ZEL_API IJsonable {
public:
    virtual ~IJsonable();
    virtual std::string toJson() const = 0;
};

} // namespace Zel::Json
