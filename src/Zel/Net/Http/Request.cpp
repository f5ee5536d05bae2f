#include <Zel/Net/Http/Request.h>

#include <Zel/Json/Json.h>
#include <Zel/Json/Object.h>
#include <Zel/Net/Http/Method.h>
#include <Zel/Net/Http/Reader.h>
#include <Zel/Net/Http/Writer.h>

namespace Zel::Net::Http {

namespace {

std::string majorMinor(const Version& version) {
    return std::to_string(version.major()) + "." + std::to_string(version.minor());
}

} // namespace

// Message's constructor has done what clear() does for the parts it holds.
Request::Request() : m_method(Method::GET) {}

Request::Request(std::string method, std::string requestUri)
    : m_method(std::move(method)), m_requestUri(std::move(requestUri)) {}

Request::~Request() = default;

void Request::clear() {
    Message::clear();
    m_method = Method::GET;
    m_requestUri.clear();
    m_url = Url();
}

void Request::setRequestUri(const Url& url) {
    m_url = url;
    m_requestUri = m_url.toString();
}

void Request::setRequestUri(Url&& url) {
    m_url = std::move(url);
    m_requestUri = m_url.toString();
}

const Url& Request::url() const {
    if (m_url.empty()) m_url = Url(m_requestUri);
    return m_url;
}

bool Request::continueExpected() const {
    const auto expect = headers().find("Expect");
    return expect && *expect == "100-continue";
}

std::string Request::toJson() const {
    Json::Object json;
    json.addJson("method", Json::_encodeString(m_method));
    json.addJson("requestUri", Json::_encodeString(m_requestUri));
    json.addJson("version", Json::_encodeString(majorMinor(version())));
    json.add("headers", headers());
    return json.json();
}

void Request::fromDto(const Variant& dto) {
    Request request;
    request.m_method = static_cast<std::string>(dto["method"]);
    request.m_requestUri = static_cast<std::string>(dto["requestUri"]);
    if (const Variant* version = dto.find("version")) {
        request.setVersion(Version::parse(static_cast<std::string>(*version)));
    }
    if (const Variant* headers = dto.find("headers")) request.headers().fromDto(*headers);
    *this = std::move(request);
}

void Request::toStream(IO::IStream& stream) const {
    Writer().writeRequest(stream, *this);
}

void Request::fromStream(std::shared_ptr<IO::IStream> stream) {
    Reader().readRequest(stream, *this);
}

} // namespace Zel::Net::Http
