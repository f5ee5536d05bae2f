#pragma once

#include <Zel/Export.h>
#include <Zel/Net/StreamSocket.h>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Zel::Net {

// A listening TCP socket.
//
//     ServerSocket listener("127.0.0.1", 0);
//     StreamSocket connection = *listener.accept();
//
// Thread safety: one thread at a time, except close(), which ends an accept() waiting elsewhere.
class ZEL_API ServerSocket {
public:
    // Binds and listens; port 0 picks a free port (see port()). Throws IO::IOException "Socket:
    // cannot listen | address=.. | port=.. | error=..".
    ServerSocket(const std::string& address, std::uint16_t port, int backlog = 1024);
    ~ServerSocket();
    ServerSocket(const ServerSocket&) = delete;
    ServerSocket& operator=(const ServerSocket&) = delete;

    // The next connection, or nothing when none came within `timeout` (zero: wait forever) or the
    // socket was closed.
    std::optional<StreamSocket> accept(std::chrono::milliseconds timeout = std::chrono::milliseconds(0));
    std::uint16_t port() const noexcept { return m_port; }
    void close() noexcept;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    std::uint16_t m_port = 0;
};

} // namespace Zel::Net
