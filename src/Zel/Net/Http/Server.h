#pragma once

#include <Zel/Export.h>
#include <Zel/Net/TlsContext.h>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Zel::Tasks {
class Queue;
}

namespace Zel::Net::Http {

class IRequestHandler;

// An HTTP/1.x server: keep-alive, pipelined requests answered in order, "100-continue", responses
// framed by Content-Length or, when the body's length is unknown, chunked.
//
//     Server server(std::make_shared<Router>(...), {.port = 8080});
//     server.start();
//     ...
//     server.stop();
//
// The sockets are served asynchronously by `ioThreads` threads. With a task queue, each request's
// handler runs as a task on it and the I/O threads only read and write; without one, handlers run
// on the I/O threads, which is fastest for handlers that do not block.
//
// What a peer cannot do: send a head beyond maxHeadSize bytes or maxHeaderCount lines (431), a body
// beyond maxBodySize (413), take longer than headerTimeout for a head or pause longer than
// readTimeout inside a body (408, then closed), stay silent between requests longer than idleTimeout
// (closed), or not read its answer within writeTimeout (closed). Heads that two HTTP readers could
// frame differently are refused (see FramingCheck) with "Connection: close". Beyond maxConnections,
// new connections are closed at once.
//
// With a TLS context in the options the server speaks HTTPS only: every connection first completes a
// TLS handshake within handshakeTimeout (a peer that does not, or speaks plain HTTP, is closed), then
// is served under the same limits. The context is shared, not copied: reload() on the caller's copy
// gives every later handshake the renewed certificate.
//
//     Server server(router, {.port = 8443, .tls = TlsContext::server("cert.pem", "key.pem")});
//
// stop() stops accepting, closes idle connections, lets requests in progress finish within
// drainTimeout and then closes what is left. Thread safety: start and stop from one thread; the
// counters from any.
class ZEL_API Server {
public:
    struct Options {
        std::string address = "127.0.0.1";
        std::uint16_t port = 0; // 0: any free port, see port()
        int ioThreads = 2;
        std::size_t maxConnections = 10000;
        std::size_t maxHeadSize = 8192;
        std::size_t maxHeaderCount = 100;
        std::int64_t maxBodySize = 1 << 20;
        std::chrono::milliseconds headerTimeout{10000};
        std::chrono::milliseconds readTimeout{10000};
        std::chrono::milliseconds idleTimeout{60000};
        std::chrono::milliseconds writeTimeout{30000};
        std::chrono::milliseconds drainTimeout{5000};
        // A server context (TlsContext::server) for HTTPS; none for plain HTTP.
        std::optional<TlsContext> tls;
        std::chrono::milliseconds handshakeTimeout{10000};
    };

    Server(std::shared_ptr<IRequestHandler> handler, Options options,
           std::shared_ptr<Tasks::Queue> queue = nullptr);
    ~Server();

    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    // Binds and listens. Throws IO::IOException "Server: cannot listen | address=.. | port=.. |
    // error=.." when the address cannot be bound, ArgumentException "Server: TLS needs a server
    // context | address=.." for a client's TLS context, InvalidOperationException when running.
    void start();
    void stop();

    // False from the moment stop() begins.
    bool running() const noexcept;
    // The port listened on (the chosen one when the options asked for 0).
    std::uint16_t port() const;
    std::size_t connectionCount() const noexcept;
    const Options& options() const noexcept;

private:
    class Impl;
    std::shared_ptr<Impl> m_impl;
};

} // namespace Zel::Net::Http
