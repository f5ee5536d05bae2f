#include <Zel/IO/IOException.h>
#include <Zel/Net/Detail/SocketImpl.h>
#include <Zel/Net/StreamSocket.h>
#include <boost/asio/connect.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <cstring>
#include <sys/socket.h>

namespace Zel::Net {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

bool Detail::SocketImpl::runUntil(const bool& done, std::chrono::milliseconds timeout) {
    return Detail::runUntil(io, done, timeout, [this] {
        boost::system::error_code ignored;
        socket.close(ignored);
    });
}

namespace {

[[noreturn]] void timedOut(const char* operation) {
    throw IO::IOException(std::string("Socket: timed out | operation=") + operation);
}

[[noreturn]] void failed(const char* operation, const boost::system::error_code& error) {
    throw IO::IOException(std::string("Socket: ") + operation + " failed | error=" + error.message());
}

// One read from the socket: at least a byte, or 0 with `eof` set once the peer is gone.
std::size_t receive(Detail::SocketImpl& impl, void* buffer, std::size_t size, bool& eof) {
    if (eof || size == 0 || !impl.socket.is_open()) return 0;
    boost::system::error_code error;
    std::size_t got = 0;
    bool done = false;
    impl.socket.async_read_some(asio::buffer(buffer, size),
                                [&](const boost::system::error_code& result, std::size_t n) {
                                    error = result;
                                    got = n;
                                    done = true;
                                });
    if (!impl.runUntil(done, impl.readTimeout)) timedOut("read");
    if (error == asio::error::eof || error == asio::error::connection_reset ||
        error == asio::error::operation_aborted || error == asio::error::bad_descriptor ||
        error == asio::error::shut_down) {
        eof = true;
        return got;
    }
    if (error) failed("read", error);
    return got;
}

} // namespace

StreamSocket::StreamSocket() : m_impl(std::make_unique<Detail::SocketImpl>()) {}

StreamSocket::StreamSocket(std::unique_ptr<Detail::SocketImpl> impl) : m_impl(std::move(impl)) {}

StreamSocket::~StreamSocket() = default;
StreamSocket::StreamSocket(StreamSocket&&) noexcept = default;
StreamSocket& StreamSocket::operator=(StreamSocket&&) noexcept = default;

void StreamSocket::connect(const std::string& host, std::uint16_t port, std::chrono::milliseconds timeout) {
    boost::system::error_code error;
    tcp::resolver resolver(m_impl->io);
    const auto endpoints = resolver.resolve(host, std::to_string(port), error);
    if (!error) {
        bool done = false;
        asio::async_connect(m_impl->socket, endpoints,
                            [&](const boost::system::error_code& result, const tcp::endpoint&) {
                                error = result;
                                done = true;
                            });
        if (!m_impl->runUntil(done, timeout)) error = asio::error::timed_out;
    }
    if (error) {
        boost::system::error_code ignored;
        m_impl->socket.close(ignored);
        throw IO::IOException("Socket: cannot connect | host=" + host + " | port=" + std::to_string(port) +
                              " | error=" + error.message());
    }
    m_impl->socket.set_option(tcp::no_delay(true), error);
    m_position = 0;
    m_eof = false;
}

std::size_t StreamSocket::peek(void* buffer, std::size_t size) {
    std::string& peeked = m_impl->peeked;
    if (peeked.size() < size && !m_eof) {
        const std::size_t before = peeked.size();
        peeked.resize(size);
        peeked.resize(before + receive(*m_impl, peeked.data() + before, size - before, m_eof));
    }
    const std::size_t taken = std::min(size, peeked.size());
    std::memcpy(buffer, peeked.data(), taken);
    return taken;
}

std::size_t StreamSocket::read(void* buffer, std::size_t size) {
    if (size == 0) return 0;
    std::size_t got;
    if (!m_impl->peeked.empty()) {
        got = std::min(size, m_impl->peeked.size());
        std::memcpy(buffer, m_impl->peeked.data(), got);
        m_impl->peeked.erase(0, got);
    } else {
        got = receive(*m_impl, buffer, size, m_eof);
    }
    m_position += static_cast<std::int64_t>(got);
    return got;
}

std::size_t StreamSocket::write(const void* data, std::size_t size) {
    boost::system::error_code error;
    bool done = false;
    asio::async_write(m_impl->socket, asio::buffer(data, size),
                      [&](const boost::system::error_code& result, std::size_t) {
                          error = result;
                          done = true;
                      });
    if (!m_impl->runUntil(done, m_impl->writeTimeout)) timedOut("write");
    if (error) failed("write", error);
    return size;
}

std::uint32_t StreamSocket::capabilities() const {
    return Readable | Writable | Peekable;
}

std::int64_t StreamSocket::getPosition() const {
    return m_position;
}

void StreamSocket::setEof() {
    m_eof = true;
    m_impl->peeked.clear();
}

void StreamSocket::setReadTimeout(std::chrono::milliseconds timeout) noexcept {
    m_impl->readTimeout = timeout;
}

void StreamSocket::setWriteTimeout(std::chrono::milliseconds timeout) noexcept {
    m_impl->writeTimeout = timeout;
}

bool StreamSocket::isOpen() const noexcept {
    return m_impl && m_impl->socket.is_open();
}

void StreamSocket::shutdownSend() {
    boost::system::error_code error;
    m_impl->socket.shutdown(tcp::socket::shutdown_send, error);
}

void StreamSocket::close() noexcept {
    if (!m_impl) return;
    boost::system::error_code ignored;
    m_impl->socket.close(ignored);
}

void StreamSocket::abort() noexcept {
    // Only the kernel call: it is safe beside a blocking call on another thread, which it wakes.
    if (m_impl && m_impl->socket.is_open()) ::shutdown(m_impl->socket.native_handle(), SHUT_RDWR);
}

std::string StreamSocket::remoteAddress() const {
    boost::system::error_code error;
    const auto endpoint = m_impl->socket.remote_endpoint(error);
    return error ? std::string() : endpoint.address().to_string();
}

std::uint16_t StreamSocket::remotePort() const {
    boost::system::error_code error;
    const auto endpoint = m_impl->socket.remote_endpoint(error);
    return error ? 0 : endpoint.port();
}

std::uint16_t StreamSocket::localPort() const {
    boost::system::error_code error;
    const auto endpoint = m_impl->socket.local_endpoint(error);
    return error ? 0 : endpoint.port();
}

} // namespace Zel::Net
