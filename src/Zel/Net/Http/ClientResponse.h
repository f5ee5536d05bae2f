#pragma once

#include <Zel/Net/Http/Response.h>
#include <Zel/Variant.h>
#include <string>

namespace Zel::Net::Http {

// What a Client call returns: the final response's status and headers, its whole body, and the URL
// that answered (the last one of a chain of redirects).
//
// The framing headers are the ones the client checked: "Content-Length" holds the length it read,
// "Transfer-Encoding" is left as sent. The head's body stream is empty; the body is body().
class ZEL_API ClientResponse {
public:
    ClientResponse() = default;
    ClientResponse(Response head, std::string body, std::string url)
        : m_head(std::move(head)), m_body(std::move(body)), m_url(std::move(url)) {}

    std::int32_t statusCode() const noexcept { return m_head.statusCode(); }
    const std::string& reasonPhrase() const noexcept { return m_head.reasonPhrase(); }
    const Headers& headers() const noexcept { return m_head.headers(); }
    const Response& head() const noexcept { return m_head; }
    const std::string& body() const noexcept { return m_body; }
    std::string takeBody() noexcept { return std::move(m_body); }
    const std::string& url() const noexcept { return m_url; }

    // 200 to 299.
    bool ok() const noexcept { return statusCode() >= 200 && statusCode() <= 299; }
    // The body parsed as JSON; fails with the JSON parser's error.
    Variant json() const;

private:
    Response m_head;
    std::string m_body;
    std::string m_url;
};

} // namespace Zel::Net::Http
