#pragma once

#include <Zel/IO/AbstractStream.h>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace Zel::Net {

namespace Detail {
struct SocketImpl;
}

// A connected TCP socket as a blocking byte stream: connect() opens it, ServerSocket::accept()
// hands one out. A read returns what has arrived (at least one byte), 0 once the peer closed;
// reads and writes that take longer than their timeout throw IO::IOException "Socket: timed out |
// operation=..." and leave the socket closed.
//
// Thread safety: one thread at a time, except abort(), which any thread may call to end the
// blocking call of another.
class ZEL_API StreamSocket : public IO::AbstractStream {
public:
    StreamSocket();
    ~StreamSocket() override;
    StreamSocket(StreamSocket&&) noexcept;
    StreamSocket& operator=(StreamSocket&&) noexcept;

    // Resolves `host` and connects to the first address that answers within `timeout` in all.
    // Throws IO::IOException "Socket: cannot connect | host=.. | port=.. | error=..".
    void connect(const std::string& host, std::uint16_t port,
                 std::chrono::milliseconds timeout = std::chrono::seconds(30));

    std::size_t read(void* buffer, std::size_t size) override;
    std::size_t peek(void* buffer, std::size_t size) override;
    // Writes everything or throws.
    std::size_t write(const void* data, std::size_t size) override;
    std::uint32_t capabilities() const override;
    // Bytes read so far.
    std::int64_t getPosition() const override;
    void setEof() override;

    // Zero: wait forever (the default).
    void setReadTimeout(std::chrono::milliseconds timeout) noexcept;
    void setWriteTimeout(std::chrono::milliseconds timeout) noexcept;

    bool isOpen() const noexcept;
    // Sends the end of the stream; reading goes on.
    void shutdownSend();
    void close() noexcept;
    // Ends any blocking call on the socket at once, from any thread.
    void abort() noexcept;

    std::string remoteAddress() const;
    std::uint16_t remotePort() const;
    std::uint16_t localPort() const;

private:
    friend class ServerSocket;
    friend class TlsStream;
    explicit StreamSocket(std::unique_ptr<Detail::SocketImpl> impl);

    std::unique_ptr<Detail::SocketImpl> m_impl;
    std::int64_t m_position = 0;
    bool m_eof = false;
};

} // namespace Zel::Net
