#include <Zel/IO/IOException.h>
#include <Zel/Net/DatagramSocket.h>
#include <Zel/Net/Detail/SocketImpl.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/udp.hpp>

namespace Zel::Net {

namespace asio = boost::asio;
using udp = asio::ip::udp;

struct DatagramSocket::Impl {
    asio::io_context io{1};
    udp::socket socket{io};
};

DatagramSocket::DatagramSocket(const std::string& address, std::uint16_t port)
    : m_impl(std::make_unique<Impl>()) {
    try {
        const udp::endpoint endpoint(asio::ip::make_address(address), port);
        m_impl->socket.open(endpoint.protocol());
        m_impl->socket.bind(endpoint);
        m_port = m_impl->socket.local_endpoint().port();
    } catch (const boost::system::system_error& e) {
        throw IO::IOException("Socket: cannot bind | address=" + address + " | port=" + std::to_string(port) +
                              " | error=" + e.code().message());
    }
}

DatagramSocket::~DatagramSocket() = default;

void DatagramSocket::sendTo(const void* data, std::size_t size, const std::string& address,
                            std::uint16_t port) {
    boost::system::error_code error;
    const auto target = asio::ip::make_address(address, error);
    if (!error) m_impl->socket.send_to(asio::buffer(data, size), udp::endpoint(target, port), 0, error);
    if (error) throw IO::IOException("Socket: send failed | error=" + error.message());
}

std::optional<DatagramSocket::Datagram> DatagramSocket::receiveFrom(void* buffer, std::size_t size,
                                                                    std::chrono::milliseconds timeout) {
    udp::endpoint sender;
    boost::system::error_code error;
    std::size_t got = 0;
    bool done = false;
    m_impl->socket.async_receive_from(asio::buffer(buffer, size), sender,
                                      [&](const boost::system::error_code& result, std::size_t n) {
                                          error = result;
                                          got = n;
                                          done = true;
                                      });
    if (!Detail::runUntil(m_impl->io, done, timeout, [&] { m_impl->socket.cancel(error); }))
        return std::nullopt;
    // A datagram longer than the buffer arrives cut; that is no failure of the socket.
    if (error && error != asio::error::message_size) return std::nullopt;
    return Datagram{got, sender.address().to_string(), sender.port()};
}

} // namespace Zel::Net
