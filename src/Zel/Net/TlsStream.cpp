#include <Zel/IO/IOException.h>
#include <Zel/Net/Detail/SocketImpl.h>
#include <Zel/Net/Detail/TlsContextImpl.h>
#include <Zel/Net/StreamSocket.h>
#include <Zel/Net/TlsContext.h>
#include <Zel/Net/TlsStream.h>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>
#include <openssl/ssl.h>

namespace Zel::Net {

namespace asio = boost::asio;
namespace ssl = asio::ssl;
using tcp = asio::ip::tcp;

struct TlsStream::Impl {
    Impl(std::unique_ptr<Detail::SocketImpl> socketImpl, std::shared_ptr<ssl::context> tlsContext)
        : socket(std::move(socketImpl)), context(std::move(tlsContext)), stream(socket->socket, *context) {}

    void handshake(ssl::stream_base::handshake_type type, std::chrono::milliseconds limit) {
        boost::system::error_code error;
        bool done = false;
        stream.async_handshake(type, [&](const boost::system::error_code& result) {
            error = result;
            done = true;
        });
        if (!socket->runUntil(done, limit)) error = asio::error::timed_out;
        if (error) throw IO::IOException("TLS: handshake failed | error=" + error.message());
    }

    std::unique_ptr<Detail::SocketImpl> socket;
    std::shared_ptr<ssl::context> context; // the one this connection started with
    ssl::stream<tcp::socket&> stream;
    std::chrono::milliseconds timeout{0};
    bool eof = false;
};

TlsStream::TlsStream(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}
TlsStream::~TlsStream() = default;
TlsStream::TlsStream(TlsStream&&) noexcept = default;
TlsStream& TlsStream::operator=(TlsStream&&) noexcept = default;

TlsStream TlsStream::connect(const std::string& host, std::uint16_t port, const TlsContext& context,
                             std::chrono::milliseconds timeout) {
    StreamSocket socket;
    socket.connect(host, port, timeout);
    auto impl = std::make_unique<Impl>(std::move(socket.m_impl), context.m_impl->current());
    // The name goes out for virtual hosting (SNI) and is checked against the certificate.
    ::SSL_set_tlsext_host_name(impl->stream.native_handle(), host.c_str());
    if (context.verifies()) impl->stream.set_verify_callback(ssl::host_name_verification(host));
    impl->handshake(ssl::stream_base::client, timeout);
    return TlsStream(std::move(impl));
}

TlsStream TlsStream::accept(StreamSocket&& socket, const TlsContext& context,
                            std::chrono::milliseconds timeout) {
    auto impl = std::make_unique<Impl>(std::move(socket.m_impl), context.m_impl->current());
    impl->handshake(ssl::stream_base::server, timeout);
    return TlsStream(std::move(impl));
}

std::size_t TlsStream::read(void* buffer, std::size_t size) {
    if (size == 0 || m_impl->eof) return 0;
    boost::system::error_code error;
    std::size_t got = 0;
    bool done = false;
    m_impl->stream.async_read_some(asio::buffer(buffer, size),
                                   [&](const boost::system::error_code& result, std::size_t n) {
                                       error = result;
                                       got = n;
                                       done = true;
                                   });
    if (!m_impl->socket->runUntil(done, m_impl->timeout))
        throw IO::IOException("TLS: timed out | operation=read");
    if (error == asio::error::eof || error == ssl::error::stream_truncated ||
        error == asio::error::connection_reset) {
        m_impl->eof = true;
    } else if (error) {
        throw IO::IOException("TLS: read failed | error=" + error.message());
    }
    m_position += static_cast<std::int64_t>(got);
    return got;
}

std::size_t TlsStream::write(const void* data, std::size_t size) {
    boost::system::error_code error;
    bool done = false;
    asio::async_write(m_impl->stream, asio::buffer(data, size),
                      [&](const boost::system::error_code& result, std::size_t) {
                          error = result;
                          done = true;
                      });
    if (!m_impl->socket->runUntil(done, m_impl->timeout))
        throw IO::IOException("TLS: timed out | operation=write");
    if (error) throw IO::IOException("TLS: write failed | error=" + error.message());
    return size;
}

std::uint32_t TlsStream::capabilities() const {
    return Readable | Writable;
}

std::int64_t TlsStream::getPosition() const {
    return m_position;
}

void TlsStream::setTimeout(std::chrono::milliseconds timeout) noexcept {
    m_impl->timeout = timeout;
}

void TlsStream::close() noexcept {
    if (!m_impl || !m_impl->socket->socket.is_open()) return;
    bool done = false;
    m_impl->stream.async_shutdown([&](const boost::system::error_code&) { done = true; });
    // The peer's answer to our close notification is not worth waiting long for.
    m_impl->socket->runUntil(done, std::chrono::milliseconds(1000));
    boost::system::error_code ignored;
    m_impl->socket->socket.close(ignored);
}

} // namespace Zel::Net
