#pragma once

// The Asio side of the blocking sockets, shared by their .cpp files only.

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <chrono>
#include <string>

namespace Zel::Net::Detail {

// Runs `io` until `done` or the timeout (zero: none). On timeout `abandon` cancels or closes what
// waits, and the operation is run to its end (its handler refers to the caller's stack); the result
// is then false.
template <class Abandon>
bool runUntil(boost::asio::io_context& io, const bool& done, std::chrono::milliseconds timeout,
              Abandon abandon) {
    io.restart();
    if (timeout.count() > 0)
        io.run_for(timeout);
    else
        io.run();
    if (done) return true;
    abandon();
    io.restart();
    io.run();
    return false;
}

// Each socket runs its own small io_context: a blocking call starts the asynchronous operation and
// runs the context until it completes or the timeout passes, which is how Asio gives timeouts to
// synchronous code.
struct SocketImpl {
    boost::asio::io_context io{1};
    boost::asio::ip::tcp::socket socket{io};
    std::string peeked; // bytes peek() read ahead of read()
    std::chrono::milliseconds readTimeout{0};
    std::chrono::milliseconds writeTimeout{0};

    // Runs io until `done` or the timeout (zero: none); false on timeout, with the socket closed
    // and the operation finished.
    bool runUntil(const bool& done, std::chrono::milliseconds timeout);
};

} // namespace Zel::Net::Detail
