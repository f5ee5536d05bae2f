#include <Zel/Json/Json.h>
#include <Zel/Net/Http/ClientResponse.h>

namespace Zel::Net::Http {

Variant ClientResponse::json() const {
    return Json::parse(m_body);
}

} // namespace Zel::Net::Http
