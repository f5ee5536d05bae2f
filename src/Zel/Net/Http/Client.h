#pragma once

#include <Zel/IO/IStream.h>
#include <Zel/Net/Http/ClientOptions.h>
#include <Zel/Net/Http/ClientResponse.h>
#include <Zel/Net/Http/Headers.h>
#include <memory>
#include <string>
#include <string_view>

namespace Zel {
class Variant;
}

namespace Zel::Net::Http {

class OAuth2ClientCredentials;

// An HTTP/1.1 client over TCP and TLS that keeps connections open between calls.
//
//     Client client;
//     ClientResponse page = client.get("https://example.org/notes/1");
//     ClientResponse made = client.postJson("https://example.org/notes", note);
//
// A call sends one request and returns the final response with its whole body read, so the
// connection goes back to the pool before the call returns. Connections are kept per scheme, host
// and port; one that a server closed while idle is noticed and replaced, and a request that finds
// its reused connection closed before any answer is sent once more on a fresh one.
//
// Responses are framed strictly, whatever the server's framing headers say: interim 1xx answers are
// skipped, 204, 304 and answers to HEAD have no body, a "Content-Length" must be one to eighteen
// digits (repeated values must agree), "Transfer-Encoding" must end in "chunked" and never stands
// beside "Content-Length", and a status code is three digits from 100 to 599. A response that
// breaks these rules fails the call with HttpException and its connection is closed, never reused:
// where one message ends in it can no longer be known.
//
// The body is handed back as sent: a "Content-Encoding" (the client asks for none) is the caller's
// to undo.
//
// Redirects (301, 302, 303, 307, 308) are followed up to ClientOptions::maxRedirects: 301, 302 and
// 303 go on with GET and no body, 307 and 308 repeat the method and the body. "Authorization",
// whether set by the caller, the bearer token or OAuth2, is sent only to the scheme, host and port
// first asked.
//
// Errors are HttpException: "HTTP client: ... | key=value ...", timeouts included. A call that fails
// leaves the client usable.
//
// Thread safety: any number of threads may call one client at once; each call uses a connection of
// its own.
class ZEL_API Client {
public:
    explicit Client(ClientOptions options = {});
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    const ClientOptions& options() const noexcept;

    // Sent as "Authorization: Bearer <token>" with every request that does not carry its own
    // "Authorization"; empty for none.
    Client& setBearerToken(std::string token);
    // Takes the bearer token from `credentials` instead; on a 401 the token is refreshed and the
    // request sent once more. Null for none.
    Client& setOAuth2(std::shared_ptr<OAuth2ClientCredentials> credentials);

    // Any method, any headers. "Host", "Content-Length" and "Transfer-Encoding" are the client's:
    // the caller's values for them are ignored. An empty body is no body.
    ClientResponse request(std::string_view method, std::string_view url, const Headers& headers = {},
                           std::string body = {});
    // A stream body is read from its current position: with "Content-Length" when the stream knows
    // its length, else chunked. It is sent again for a redirect or a retry only when it can seek.
    ClientResponse request(std::string_view method, std::string_view url, const Headers& headers,
                           std::shared_ptr<IO::IStream> body);

    ClientResponse get(std::string_view url, const Headers& headers = {});
    ClientResponse head(std::string_view url, const Headers& headers = {});
    ClientResponse del(std::string_view url, const Headers& headers = {});
    ClientResponse post(std::string_view url, std::string body, std::string_view contentType,
                        const Headers& headers = {});
    ClientResponse put(std::string_view url, std::string body, std::string_view contentType,
                       const Headers& headers = {});
    // The value as JSON with "Content-Type: application/json".
    ClientResponse postJson(std::string_view url, const Variant& value, const Headers& headers = {});

    // Idle connections held now, over all hosts.
    std::size_t idleConnections() const;
    // Closes every idle connection.
    void closeIdleConnections();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace Zel::Net::Http
