#include <Zel/Net/Http/Detail/ClientConnection.h>
#include <Zel/Net/Http/HttpException.h>
#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/write.hpp>
#include <optional>

namespace Zel::Net::Http::Detail {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;
using ErrorCode = boost::system::error_code;

class TlsClientContext {
public:
    TlsClientContext(bool verifyPeer, const std::string& caFile) : m_context(asio::ssl::context::tls_client) {
        m_context.set_options(asio::ssl::context::default_workarounds | asio::ssl::context::no_sslv2 |
                              asio::ssl::context::no_sslv3 | asio::ssl::context::no_tlsv1 |
                              asio::ssl::context::no_tlsv1_1);
        ErrorCode error;
        if (caFile.empty()) {
            m_context.set_default_verify_paths(error);
        } else {
            m_context.load_verify_file(caFile, error);
        }
        if (error) {
            throw HttpException("HTTP client: cannot load trusted certificates | caFile=" + caFile +
                                " | error=" + error.message());
        }
        m_context.set_verify_mode(verifyPeer ? asio::ssl::verify_peer : asio::ssl::verify_none);
        m_verifyPeer = verifyPeer;
    }

    asio::ssl::context& context() noexcept { return m_context; }
    bool verifyPeer() const noexcept { return m_verifyPeer; }

private:
    asio::ssl::context m_context;
    bool m_verifyPeer = true;
};

std::shared_ptr<TlsClientContext> makeTlsClientContext(bool verifyPeer, const std::string& caFile) {
    return std::make_shared<TlsClientContext>(verifyPeer, caFile);
}

struct ClientConnection::Impl {
    asio::io_context io{1};
    tcp::socket socket{io};
    std::optional<asio::ssl::stream<tcp::socket&>> tls;
    std::shared_ptr<TlsClientContext> tlsContext; // the SSL object refers to it
    std::string host;
    int port = 0;

    // Starts one asynchronous operation and runs the loop until it completes or `deadline` passes.
    // On time-out the socket is closed, which completes the operation with an error, so that no
    // handler outlives this frame. Returns whether the operation completed.
    template <class Start>
    bool run(Start&& start, Clock::time_point deadline) {
        bool done = false;
        start([&done] { done = true; });
        io.restart();
        if (deadline == Clock::time_point::max()) {
            io.run();
        } else {
            io.run_until(deadline);
        }
        if (done) return true;
        ErrorCode ignored;
        socket.close(ignored);
        io.restart();
        io.run();
        return false;
    }

    std::string where() const { return " | host=" + host + " | port=" + std::to_string(port); }
};

namespace {

std::int64_t millisecondsUntil(ClientConnection::Clock::time_point deadline,
                               ClientConnection::Clock::time_point from) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(deadline - from).count();
}

bool isEndOfStream(const ErrorCode& error) {
    return error == asio::error::eof || error == asio::ssl::error::stream_truncated;
}

} // namespace

ClientConnection::ClientConnection(const std::string& host, int port, std::shared_ptr<TlsClientContext> tls,
                                   Clock::time_point deadline, Clock::time_point callDeadline)
    : m_impl(std::make_unique<Impl>()) {
    Impl& impl = *m_impl;
    impl.host = host;
    impl.port = port;
    const Clock::time_point started = Clock::now();
    auto timedOut = [&] {
        const bool call = callDeadline <= deadline;
        return HttpException(std::string("HTTP client: ") + (call ? "request" : "connect") + " timed out" +
                             impl.where() +
                             " | timeoutMs=" + std::to_string(millisecondsUntil(deadline, started)));
    };

    ErrorCode error;
    tcp::resolver resolver(impl.io);
    tcp::resolver::results_type endpoints;
    if (!impl.run(
            [&](auto done) {
                resolver.async_resolve(host, std::to_string(port),
                                       [&, done](const ErrorCode& e, tcp::resolver::results_type results) {
                                           error = e;
                                           endpoints = std::move(results);
                                           done();
                                       });
            },
            deadline)) {
        resolver.cancel();
        throw timedOut();
    }
    if (error)
        throw HttpException("HTTP client: cannot resolve host" + impl.where() +
                            " | error=" + error.message());

    if (!impl.run(
            [&](auto done) {
                asio::async_connect(impl.socket, endpoints,
                                    [&, done](const ErrorCode& e, const tcp::endpoint&) {
                                        error = e;
                                        done();
                                    });
            },
            deadline)) {
        throw timedOut();
    }
    if (error)
        throw HttpException("HTTP client: cannot connect" + impl.where() + " | error=" + error.message());
    impl.socket.set_option(tcp::no_delay(true), error);
    // Only for idleAlive's peek; asynchronous operations do not care.
    impl.socket.non_blocking(true, error);

    if (!tls) return;
    impl.tlsContext = std::move(tls);
    impl.tls.emplace(impl.socket, impl.tlsContext->context());
    SSL* ssl = impl.tls->native_handle();
    // SNI names a host, never an address.
    ErrorCode notAnAddress;
    asio::ip::make_address(host, notAnAddress);
    if (notAnAddress && !SSL_set_tlsext_host_name(ssl, host.c_str())) {
        throw HttpException("HTTP client: cannot set the TLS server name" + impl.where());
    }
    if (impl.tlsContext->verifyPeer()) {
        impl.tls->set_verify_callback(asio::ssl::host_name_verification(host));
    }
    if (!impl.run(
            [&](auto done) {
                impl.tls->async_handshake(asio::ssl::stream_base::client, [&, done](const ErrorCode& e) {
                    error = e;
                    done();
                });
            },
            deadline)) {
        throw timedOut();
    }
    if (error) {
        std::string reason = error.message();
        if (const long verify = SSL_get_verify_result(ssl); verify != X509_V_OK) {
            reason += " (" + std::string(X509_verify_cert_error_string(verify)) + ")";
        }
        throw HttpException("HTTP client: TLS handshake failed" + impl.where() + " | error=" + reason);
    }
}

ClientConnection::~ClientConnection() = default;

bool ClientConnection::waitReadable(std::chrono::milliseconds timeout) {
    Impl& impl = *m_impl;
    if (impl.tls && SSL_pending(impl.tls->native_handle()) > 0) return true;
    bool ready = false;
    asio::steady_timer timer(impl.io);
    timer.expires_at(std::min(Clock::now() + timeout, m_callDeadline));
    impl.io.restart();
    impl.socket.async_wait(tcp::socket::wait_read, [&](const ErrorCode& e) {
        ready = !e;
        timer.cancel();
    });
    timer.async_wait([&](const ErrorCode& e) {
        if (!e) impl.socket.cancel();
    });
    impl.io.run();
    return ready;
}

bool ClientConnection::idleAlive() {
    Impl& impl = *m_impl;
    if (m_broken || !impl.socket.is_open()) return false;
    char byte;
    ErrorCode error;
    impl.socket.receive(asio::buffer(&byte, 1), tcp::socket::message_peek, error);
    // Nothing to read is the healthy state. Over TLS, records the server sends unasked (session
    // tickets) are no reason to give the connection up.
    if (error == asio::error::would_block) return true;
    return !error && impl.tls.has_value();
}

std::size_t ClientConnection::read(void* buffer, std::size_t size) {
    Impl& impl = *m_impl;
    if (m_broken) throw HttpException("HTTP client: connection is broken" + impl.where());
    const Clock::time_point now = Clock::now();
    const Clock::time_point own = now + m_perOperation;
    const Clock::time_point deadline = std::min(own, m_callDeadline);
    ErrorCode error;
    std::size_t count = 0;
    const bool completed = impl.run(
        [&](auto done) {
            auto handler = [&, done](const ErrorCode& e, std::size_t n) {
                error = e;
                count = n;
                done();
            };
            if (impl.tls) {
                impl.tls->async_read_some(asio::buffer(buffer, size), handler);
            } else {
                impl.socket.async_read_some(asio::buffer(buffer, size), handler);
            }
        },
        deadline);
    if (!completed) {
        m_broken = m_timedOut = true;
        const bool call = m_callDeadline < own;
        throw HttpException(
            std::string("HTTP client: ") + (call ? "request" : "read") + " timed out" + impl.where() +
            " | timeoutMs=" +
            std::to_string(call ? millisecondsUntil(m_callDeadline, now) : m_perOperation.count()));
    }
    if (error && count == 0) {
        m_broken = true;
        if (isEndOfStream(error)) return 0;
        throw HttpException("HTTP client: read failed" + impl.where() + " | error=" + error.message());
    }
    m_bytesRead += static_cast<std::int64_t>(count);
    return count;
}

std::size_t ClientConnection::write(const void* data, std::size_t size) {
    Impl& impl = *m_impl;
    if (m_broken) throw HttpException("HTTP client: connection is broken" + impl.where());
    const Clock::time_point now = Clock::now();
    const Clock::time_point own = now + m_perOperation;
    ErrorCode error;
    const bool completed = impl.run(
        [&](auto done) {
            auto handler = [&, done](const ErrorCode& e, std::size_t) {
                error = e;
                done();
            };
            if (impl.tls) {
                asio::async_write(*impl.tls, asio::buffer(data, size), handler);
            } else {
                asio::async_write(impl.socket, asio::buffer(data, size), handler);
            }
        },
        std::min(own, m_callDeadline));
    if (!completed) {
        m_broken = m_timedOut = true;
        const bool call = m_callDeadline < own;
        throw HttpException(
            std::string("HTTP client: ") + (call ? "request" : "write") + " timed out" + impl.where() +
            " | timeoutMs=" +
            std::to_string(call ? millisecondsUntil(m_callDeadline, now) : m_perOperation.count()));
    }
    if (error) {
        m_broken = true;
        throw HttpException("HTTP client: write failed" + impl.where() + " | error=" + error.message());
    }
    return size;
}

} // namespace Zel::Net::Http::Detail
