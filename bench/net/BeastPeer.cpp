// A Boost.Beast asynchronous server (one session per connection, keep-alive, pipelining through
// the session's read loop) answering the benchmark's two routes on THREADS threads.
//     zel-bench-net-beast PORT [THREADS]
#include "PeerCommon.h"

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <memory>
#include <thread>
#include <vector>

namespace beast = boost::beast;
namespace http = beast::http;
namespace asio = boost::asio;
using tcp = asio::ip::tcp;

namespace {

class Session : public std::enable_shared_from_this<Session> {
public:
    explicit Session(tcp::socket&& socket) : m_stream(std::move(socket)) {}

    void run() {
        asio::dispatch(m_stream.get_executor(),
                       beast::bind_front_handler(&Session::read, shared_from_this()));
    }

private:
    void read() {
        m_request = {};
        m_stream.expires_after(std::chrono::seconds(30));
        http::async_read(m_stream, m_buffer, m_request,
                         beast::bind_front_handler(&Session::onRead, shared_from_this()));
    }

    void onRead(beast::error_code error, std::size_t) {
        if (error) return close();
        m_response = {};
        m_response.version(m_request.version());
        m_response.keep_alive(m_request.keep_alive());
        if (m_request.target() == "/plaintext") {
            m_response.result(http::status::ok);
            m_response.set(http::field::content_type, "text/plain");
            m_response.body() = Bench::plaintext;
        } else if (m_request.target() == "/json") {
            m_response.result(http::status::ok);
            m_response.set(http::field::content_type, "application/json");
            m_response.body() = Bench::json;
        } else {
            m_response.result(http::status::not_found);
        }
        m_response.prepare_payload();
        http::async_write(m_stream, m_response,
                          beast::bind_front_handler(&Session::onWrite, shared_from_this()));
    }

    void onWrite(beast::error_code error, std::size_t) {
        if (error || !m_response.keep_alive()) return close();
        read();
    }

    void close() {
        beast::error_code ignored;
        m_stream.socket().shutdown(tcp::socket::shutdown_send, ignored);
    }

    beast::tcp_stream m_stream;
    beast::flat_buffer m_buffer;
    http::request<http::string_body> m_request;
    http::response<http::string_body> m_response;
};

void accept(tcp::acceptor& acceptor, asio::io_context& io) {
    acceptor.async_accept(asio::make_strand(io),
                          [&acceptor, &io](beast::error_code error, tcp::socket socket) {
                              if (!error) {
                                  socket.set_option(tcp::no_delay(true));
                                  std::make_shared<Session>(std::move(socket))->run();
                              }
                              if (acceptor.is_open()) accept(acceptor, io);
                          });
}

} // namespace

int main(int argc, char** argv) {
    const auto [port, threads] = Bench::parseArguments(argc, argv);
    asio::io_context io(threads);
    tcp::acceptor acceptor(io, {asio::ip::make_address("127.0.0.1"), port});
    accept(acceptor, io);
    std::vector<std::thread> running;
    for (int i = 0; i < threads; ++i)
        running.emplace_back([&io] { io.run(); });
    Bench::waitForSignal();
    io.stop();
    for (auto& thread : running)
        thread.join();
}
