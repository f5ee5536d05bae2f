#pragma once

#include <Zel/GenericException.h>
#include <string>

namespace Zel::Config {

// A configuration could not be read or a value is not what its reader expected. The text names
// where the value came from: "Config: expected an integer | path=threads | found=\"four\" |
// source=/etc/zel/host.json".
class ZEL_API ConfigException : public GenericException {
public:
    explicit ConfigException(std::string message);
    ~ConfigException() override;
};

} // namespace Zel::Config
