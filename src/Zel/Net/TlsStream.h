#pragma once

#include <Zel/IO/AbstractStream.h>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace Zel::Net {

class StreamSocket;
class TlsContext;

// A TLS connection as a blocking byte stream, client or server side.
//
//     auto stream = TlsStream::connect("example.org", 443, TlsContext::client());
//
// A failed handshake (an untrusted certificate, a name that does not match, a timeout) throws
// IO::IOException "TLS: handshake failed | error=..". Reads return 0 once the peer closed.
//
// Thread safety: one thread at a time.
class ZEL_API TlsStream : public IO::AbstractStream {
public:
    ~TlsStream() override;
    TlsStream(TlsStream&&) noexcept;
    TlsStream& operator=(TlsStream&&) noexcept;

    // Connects and shakes hands; with a verifying context the certificate must name `host`.
    static TlsStream connect(const std::string& host, std::uint16_t port, const TlsContext& context,
                             std::chrono::milliseconds timeout = std::chrono::seconds(30));
    // The server's handshake over an accepted connection.
    static TlsStream accept(StreamSocket&& socket, const TlsContext& context,
                            std::chrono::milliseconds timeout = std::chrono::seconds(30));

    std::size_t read(void* buffer, std::size_t size) override;
    // Writes everything or throws.
    std::size_t write(const void* data, std::size_t size) override;
    std::uint32_t capabilities() const override;
    std::int64_t getPosition() const override;

    // Zero: wait forever (the default).
    void setTimeout(std::chrono::milliseconds timeout) noexcept;
    // Sends the TLS close notification and closes the connection.
    void close() noexcept;

private:
    struct Impl;
    explicit TlsStream(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> m_impl;
    std::int64_t m_position = 0;
};

} // namespace Zel::Net
