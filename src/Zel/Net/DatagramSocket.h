#pragma once

#include <Zel/Export.h>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Zel::Net {

// A UDP socket bound to a local address: sends datagrams to any peer and receives them with a
// timeout. Datagrams keep their bounds, so this is no byte stream.
//
// Thread safety: one thread at a time.
class ZEL_API DatagramSocket {
public:
    struct Datagram {
        std::size_t size = 0; // bytes placed in the buffer (a longer datagram is cut)
        std::string address;
        std::uint16_t port = 0;
    };

    // Port 0 picks a free one. Throws IO::IOException "Socket: cannot bind | address=.. | port=.. |
    // error=..".
    DatagramSocket(const std::string& address, std::uint16_t port);
    ~DatagramSocket();
    DatagramSocket(const DatagramSocket&) = delete;
    DatagramSocket& operator=(const DatagramSocket&) = delete;

    // Throws IO::IOException "Socket: send failed | error=..".
    void sendTo(const void* data, std::size_t size, const std::string& address, std::uint16_t port);
    // The next datagram, or nothing when none came within `timeout` (zero: wait forever).
    std::optional<Datagram> receiveFrom(void* buffer, std::size_t size,
                                        std::chrono::milliseconds timeout = std::chrono::milliseconds(0));
    std::uint16_t port() const noexcept { return m_port; }

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
    std::uint16_t m_port = 0;
};

} // namespace Zel::Net
