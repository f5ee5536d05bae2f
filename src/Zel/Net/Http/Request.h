#pragma once

#include <Zel/Net/Http/Message.h>
#include <Zel/Url.h>

#include <string>

namespace Zel::Net::Http {

// An HTTP request: method, request target and the parts of Message.
//
// The target is kept twice: requestUri() exactly as received or set, and url() parsed from it on
// first use. Setting the target as a string changes only requestUri, so a URL parsed before stays
// as it was (it is not parsed again); setting it as a Url stores both.
class ZEL_API Request : public Message {
public:
    // GET, an empty target, version 1.1, "Content-Length: 0", no body.
    Request();
    Request(std::string method, std::string requestUri);
    Request(const Request&) = default;
    Request(Request&&) noexcept = default;
    Request& operator=(const Request&) = default;
    Request& operator=(Request&&) noexcept = default;
    ~Request() override;

    const std::string& method() const noexcept { return m_method; }
    void setMethod(std::string method) { m_method = std::move(method); }

    const std::string& requestUri() const noexcept { return m_requestUri; }
    void setRequestUri(const std::string& requestUri) { m_requestUri = requestUri; }
    void setRequestUri(std::string&& requestUri) noexcept { m_requestUri = std::move(requestUri); }
    void setRequestUri(const Url& url);
    void setRequestUri(Url&& url);

    // Parses requestUri the first time it is asked while the URL is still empty; the parser's
    // ArgumentException passes through.
    const Url& url() const;

    // Whether "Expect" is exactly "100-continue".
    bool continueExpected() const;

    // {"method":...,"requestUri":...,"version":"1.1","headers":{...}}
    std::string toJson() const override;
    // Fills the request from a Variant map with the keys of toJson. "method" and "requestUri" are
    // required (a missing one throws the Variant's "key not set" error); a missing "version" or
    // "headers" keeps the default. The body is cleared.
    void fromDto(const Variant& dto);

    void toStream(IO::IStream& stream) const override;
    void fromStream(std::shared_ptr<IO::IStream> stream) override;

protected:
    // Message::clear, then GET, an empty target and an empty URL.
    void clear();

private:
    friend class Reader;

    std::string m_method;
    std::string m_requestUri;
    mutable Url m_url;
};

} // namespace Zel::Net::Http
