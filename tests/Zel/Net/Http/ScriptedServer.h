#pragma once

// A loopback server for the HTTP client's tests: it answers with whatever bytes a test scripts, so
// that framing a real server would never send can be sent on purpose. Plain POSIX sockets, and
// OpenSSL's own API for TLS, so that nothing of the client's transport is under test twice.

#include "LoopbackClient.h"

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <cstring>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/ssl.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Zel::Net::Http::Testing {

// One request as the server received it.
struct SeenRequest {
    std::string method;
    std::string target;
    std::string head; // request line and header lines
    std::string body;

    // The value of the first header line of that name (any case), or nothing.
    std::optional<std::string> header(std::string_view name) const {
        // The CR LF before each name keeps the request line and values from matching.
        std::string lines = "\r\n" + head, wanted = "\r\n" + std::string(name) + ":";
        for (std::string* text : {&lines, &wanted})
            std::transform(text->begin(), text->end(), text->begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        const std::size_t found = lines.find(wanted);
        if (found == std::string::npos) return std::nullopt;
        std::size_t start = found + wanted.size() - 2; // in head, which lacks the leading CR LF
        while (start < head.size() && head[start] == ' ')
            ++start;
        return head.substr(start, head.find("\r\n", start) - start);
    }
};

// The server's end of one connection.
class Peer {
public:
    Peer(int fd, SSL* ssl) : m_fd(fd), m_ssl(ssl) {}

    // The next request head; nothing when the client closed.
    std::optional<SeenRequest> readHead() {
        std::size_t end;
        while ((end = m_pending.find("\r\n\r\n")) == std::string::npos) {
            if (!receive()) return std::nullopt;
        }
        SeenRequest request;
        request.head = m_pending.substr(0, end);
        m_pending.erase(0, end + 4);
        const std::size_t space = request.head.find(' ');
        request.method = request.head.substr(0, space);
        request.target = request.head.substr(space + 1, request.head.find(' ', space + 1) - space - 1);
        return request;
    }

    // Reads the body the head announces (Content-Length or chunked) into it.
    bool readBody(SeenRequest& request) {
        const auto length = request.header("Content-Length");
        const bool chunked = !length && request.header("Transfer-Encoding");
        std::optional<std::size_t> end;
        while (!(end = bodyEnd(m_pending, 0, chunked, length ? std::stoul(*length) : 0, request.body)))
            if (!receive()) return false;
        m_pending.erase(0, *end);
        return true;
    }

    std::optional<SeenRequest> readRequest() {
        auto request = readHead();
        if (request && !readBody(*request)) return std::nullopt;
        return request;
    }

    // In one write, or one byte a write.
    void send(std::string_view bytes, bool trickle = false) {
        while (!bytes.empty()) {
            const std::size_t piece = trickle ? 1 : bytes.size();
            const long sent = m_ssl ? SSL_write(m_ssl, bytes.data(), static_cast<int>(piece))
                                    : ::send(m_fd, bytes.data(), piece, MSG_NOSIGNAL);
            if (sent <= 0) return;
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
    }

    // Blocks until the client closes or the server stops.
    void waitForClose() {
        while (receive()) {
        }
    }

private:
    bool receive() {
        char buffer[4096];
        const long got =
            m_ssl ? SSL_read(m_ssl, buffer, sizeof buffer) : ::recv(m_fd, buffer, sizeof buffer, 0);
        if (got <= 0) return false;
        m_pending.append(buffer, static_cast<std::size_t>(got));
        return true;
    }

    int m_fd;
    SSL* m_ssl;
    std::string m_pending;
};

// Listens on 127.0.0.1 at a port of the system's choice and runs the script for each connection it
// accepts, on a thread of its own. The destructor closes every socket and joins every thread.
class ScriptedServer {
public:
    using Script = std::function<void(Peer&)>;

    explicit ScriptedServer(Script script, SSL_CTX* tls = nullptr) : m_script(std::move(script)), m_tls(tls) {
        // OpenSSL writes alerts and close_notify with plain write(): a client that has gone must
        // not end the test program.
        std::signal(SIGPIPE, SIG_IGN);
        m_listener = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(m_listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
            ::listen(m_listener, 64) != 0 ||
            ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            throw std::runtime_error("ScriptedServer: cannot listen");
        }
        m_port = ntohs(address.sin_port);
        m_acceptor = std::thread([this] { acceptLoop(); });
    }

    ~ScriptedServer() {
        m_stopping = true;
        ::shutdown(m_listener, SHUT_RDWR);
        m_acceptor.join();
        {
            std::lock_guard lock(m_mutex);
            for (const int fd : m_connections)
                ::shutdown(fd, SHUT_RDWR);
        }
        for (std::thread& thread : m_threads)
            thread.join();
        for (const int fd : m_connections)
            ::close(fd);
        ::close(m_listener);
    }

    int port() const noexcept { return m_port; }
    std::string url(std::string_view path = "/", std::string_view host = "127.0.0.1") const {
        return std::string(m_tls ? "https://" : "http://") + std::string(host) + ":" +
               std::to_string(m_port) + std::string(path);
    }
    // Connections accepted (for TLS: whose handshake succeeded).
    int accepted() const noexcept { return m_accepted; }

private:
    void acceptLoop() {
        for (;;) {
            const int fd = ::accept(m_listener, nullptr, nullptr);
            if (fd < 0) return;
            std::lock_guard lock(m_mutex);
            if (m_stopping) {
                ::close(fd);
                return;
            }
            const int on = 1;
            ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            m_connections.push_back(fd);
            m_threads.emplace_back([this, fd] { serve(fd); });
        }
    }

    void serve(int fd) {
        SSL* ssl = nullptr;
        if (m_tls) {
            ssl = SSL_new(m_tls);
            SSL_set_fd(ssl, fd);
            if (SSL_accept(ssl) != 1) {
                SSL_free(ssl);
                return;
            }
        }
        ++m_accepted;
        Peer peer(fd, ssl);
        m_script(peer);
        if (ssl) {
            SSL_shutdown(ssl);
            SSL_free(ssl);
        }
        ::shutdown(fd, SHUT_RDWR);
    }

    Script m_script;
    SSL_CTX* m_tls;
    int m_listener = -1;
    int m_port = 0;
    std::atomic<int> m_accepted{0};
    std::atomic<bool> m_stopping{false};
    std::mutex m_mutex;
    std::vector<int> m_connections;
    std::vector<std::thread> m_threads;
    std::thread m_acceptor;
};

} // namespace Zel::Net::Http::Testing
