#pragma once

#include <Zel/Export.h>

#include <string>
#include <string_view>

namespace Zel::Net::Http {

// Names of the common request methods. A request may carry any other method; it is read and
// written as it stands.
class ZEL_API Method {
public:
    static const std::string GET;
    static const std::string POST;
    static const std::string PUT;
    static const std::string DELETE;
    static const std::string PATCH;
    static const std::string CONNECT;

    // Whether a request of this method carries a body that the reader must frame: "POST", "PUT"
    // and "PATCH" only, compared exactly.
    static bool hasRequestBody(std::string_view method) noexcept;

    Method() = delete;
};

} // namespace Zel::Net::Http
