#include <Zel/Net/Http/Method.h>

namespace Zel::Net::Http {

const std::string Method::GET = "GET";
const std::string Method::POST = "POST";
const std::string Method::PUT = "PUT";
const std::string Method::DELETE = "DELETE";
const std::string Method::PATCH = "PATCH";
const std::string Method::CONNECT = "CONNECT";

bool Method::hasRequestBody(std::string_view method) noexcept {
    return method == "POST" || method == "PUT" || method == "PATCH";
}

} // namespace Zel::Net::Http
