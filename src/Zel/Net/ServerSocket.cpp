#include <Zel/IO/IOException.h>
#include <Zel/Net/Detail/SocketImpl.h>
#include <Zel/Net/ServerSocket.h>
#include <atomic>
#include <sys/socket.h>

namespace Zel::Net {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

struct ServerSocket::Impl {
    asio::io_context io{1};
    tcp::acceptor acceptor{io};
    std::atomic<bool> closed{false};
};

ServerSocket::ServerSocket(const std::string& address, std::uint16_t port, int backlog)
    : m_impl(std::make_unique<Impl>()) {
    try {
        const tcp::endpoint endpoint(asio::ip::make_address(address), port);
        m_impl->acceptor.open(endpoint.protocol());
        m_impl->acceptor.set_option(tcp::acceptor::reuse_address(true));
        m_impl->acceptor.bind(endpoint);
        m_impl->acceptor.listen(backlog);
        m_port = m_impl->acceptor.local_endpoint().port();
    } catch (const boost::system::system_error& e) {
        throw IO::IOException("Socket: cannot listen | address=" + address +
                              " | port=" + std::to_string(port) + " | error=" + e.code().message());
    }
}

ServerSocket::~ServerSocket() = default;

std::optional<StreamSocket> ServerSocket::accept(std::chrono::milliseconds timeout) {
    if (m_impl->closed) return std::nullopt;
    auto peer = std::make_unique<Detail::SocketImpl>();
    boost::system::error_code error;
    bool done = false;
    m_impl->acceptor.async_accept(peer->socket, [&](const boost::system::error_code& result) {
        error = result;
        done = true;
    });
    // On timeout not the acceptor's close: only this wait ends; the socket keeps listening.
    if (!Detail::runUntil(m_impl->io, done, timeout, [&] { m_impl->acceptor.cancel(error); }))
        return std::nullopt;
    if (error || m_impl->closed) return std::nullopt;
    peer->socket.set_option(tcp::no_delay(true), error);
    return StreamSocket(std::move(peer));
}

void ServerSocket::close() noexcept {
    m_impl->closed = true;
    // Wakes an accept() blocked on another thread; the descriptor itself goes with the object.
    ::shutdown(m_impl->acceptor.native_handle(), SHUT_RDWR);
}

} // namespace Zel::Net
