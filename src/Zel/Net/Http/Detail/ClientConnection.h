#pragma once

#include <Zel/IO/AbstractStream.h>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace Zel::Net::Http::Detail {

// The TLS settings a client's connections share: trusted certificates and whether to verify.
class TlsClientContext;
std::shared_ptr<TlsClientContext> makeTlsClientContext(bool verifyPeer, const std::string& caFile);

// One TCP or TLS connection of the HTTP client, as a blocking stream whose every read and write
// waits at most until a deadline. The caller sets the deadlines before each exchange; a wait that
// runs out closes the connection and throws HttpException "HTTP client: read timed out" (or
// "request timed out" when the call's own deadline was the nearer one).
//
// A read returns 0 when the peer has closed. Any failure leaves the connection broken(); the
// client then drops it.
class ClientConnection final : public IO::AbstractStream {
public:
    using Clock = std::chrono::steady_clock;

    // Resolves, connects and (with `tls`) shakes hands, verifying the server as `host`, all before
    // `deadline`. `callDeadline` tells whether a timeout belongs to the connect timeout or the call.
    ClientConnection(const std::string& host, int port, std::shared_ptr<TlsClientContext> tls,
                     Clock::time_point deadline, Clock::time_point callDeadline);
    ~ClientConnection() override;

    // Every later read and write waits at most `perOperation`, and never past `callDeadline`.
    void setDeadlines(std::chrono::milliseconds perOperation, Clock::time_point callDeadline) noexcept {
        m_perOperation = perOperation;
        m_callDeadline = callDeadline;
    }
    // Waits until a byte can be read, at most `timeout` and never past the call's deadline; false
    // when the time ran out (the connection stays usable).
    bool waitReadable(std::chrono::milliseconds timeout);
    // An idle connection the peer has not closed and on which nothing unasked for has arrived.
    bool idleAlive();

    bool broken() const noexcept { return m_broken; }
    bool timedOut() const noexcept { return m_timedOut; }
    std::int64_t bytesRead() const noexcept { return m_bytesRead; }

    std::size_t read(void* buffer, std::size_t size) override;
    // Writes everything or throws.
    std::size_t write(const void* data, std::size_t size) override;
    std::uint32_t capabilities() const override { return Readable | Writable; }

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    std::chrono::milliseconds m_perOperation{30'000};
    Clock::time_point m_callDeadline = Clock::time_point::max();
    std::int64_t m_bytesRead = 0;
    bool m_broken = false;
    bool m_timedOut = false;
};

} // namespace Zel::Net::Http::Detail
