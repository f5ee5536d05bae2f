#include <Zel/Net/Http/Response.h>

#include <Zel/Json/Json.h>
#include <Zel/Json/Object.h>
#include <Zel/Net/Http/Reader.h>
#include <Zel/Net/Http/Status.h>
#include <Zel/Net/Http/Writer.h>

namespace Zel::Net::Http {

// Message's constructor has done what clear() does for the parts it holds.
Response::Response() : m_reasonPhrase(Status::text(200)) {}

Response::Response(std::int32_t statusCode)
    : m_statusCode(statusCode), m_reasonPhrase(Status::text(statusCode)) {}

Response::~Response() = default;

void Response::clear() {
    Message::clear();
    m_statusCode = 200;
    m_reasonPhrase = Status::text(200);
}

void Response::setStatusCode(std::int32_t statusCode, bool setReasonPhrase) {
    m_statusCode = statusCode;
    if (setReasonPhrase) m_reasonPhrase = Status::text(statusCode);
}

std::string Response::toJson() const {
    Json::Object json;
    json.addJson("protocol", Json::_encodeString(std::to_string(version().major()) + "." +
                                                 std::to_string(version().minor())));
    json.addJson("statusCode", std::to_string(m_statusCode));
    json.addJson("reasonPhrase", Json::_encodeString(m_reasonPhrase));
    json.add("headers", headers());
    return json.json();
}

void Response::fromDto(const Variant& dto) {
    Response response;
    response.setStatusCode(static_cast<std::int32_t>(static_cast<int>(dto["statusCode"])));
    if (const Variant* reasonPhrase = dto.find("reasonPhrase")) {
        response.m_reasonPhrase = static_cast<std::string>(*reasonPhrase);
    }
    if (const Variant* protocol = dto.find("protocol")) {
        response.setVersion(Version::parse(static_cast<std::string>(*protocol)));
    }
    if (const Variant* headers = dto.find("headers")) response.headers().fromDto(*headers);
    *this = std::move(response);
}

void Response::toStream(IO::IStream& stream) const {
    Writer().writeResponse(stream, *this);
}

void Response::fromStream(std::shared_ptr<IO::IStream> stream) {
    Reader().readResponse(stream, *this);
}

} // namespace Zel::Net::Http
