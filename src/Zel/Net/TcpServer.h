#pragma once

#include <Zel/Export.h>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Zel::Tasks {
class Queue;
}

namespace Zel::Net {

class StreamSocket;

// Accepts TCP connections and serves each with a handler run as a task on the queue it is given;
// the handler works on a blocking StreamSocket and the connection is closed when it returns.
//
//     TcpServer server([](StreamSocket& socket) { ... }, {.port = 7000}, queue);
//     server.start();
//
// At most maxConnections are served at once; beyond that a new connection is closed at once.
// A connection idle longer than idleTimeout ends: the handler's read or write throws
// IO::IOException. A handler's exception ends its connection and nothing else.
//
// stop() stops accepting, waits up to drainTimeout for the handlers to finish, then aborts the
// connections left (their blocking calls return) and waits for those handlers up to drainTimeout
// again. Thread safety: start and stop from one thread; the counters from any.
class ZEL_API TcpServer {
public:
    using Handler = std::function<void(StreamSocket&)>;

    struct Options {
        std::string address = "127.0.0.1";
        std::uint16_t port = 0;
        std::size_t maxConnections = 1000;
        std::chrono::milliseconds idleTimeout{60000};
        std::chrono::milliseconds drainTimeout{5000};
    };

    TcpServer(Handler handler, Options options, std::shared_ptr<Tasks::Queue> queue);
    ~TcpServer();
    TcpServer(const TcpServer&) = delete;
    TcpServer& operator=(const TcpServer&) = delete;

    // Throws IO::IOException when the address cannot be bound, InvalidOperationException when
    // running.
    void start();
    void stop();

    std::uint16_t port() const noexcept;
    std::size_t connectionCount() const;

private:
    struct Impl;
    std::shared_ptr<Impl> m_impl;
};

} // namespace Zel::Net
