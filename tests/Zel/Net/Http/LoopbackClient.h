#pragma once

// A deliberately dumb HTTP peer on a blocking POSIX socket: it sends exactly the bytes a test gives
// it and splits what comes back into responses itself, so that nothing between the test and the
// server could repair a malformed exchange.

#include <arpa/inet.h>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace Zel::Net::Http::Testing {

// Where the body that starts at `at` in `bytes` ends, its bytes put in `body`: chunked (without the
// extensions and trailers these tests never send), else `length` bytes. Nothing while bytes are missing.
inline std::optional<std::size_t> bodyEnd(const std::string& bytes, std::size_t at, bool chunked,
                                          std::size_t length, std::string& body) {
    body.clear();
    if (!chunked) {
        if (bytes.size() < at + length) return std::nullopt;
        body.assign(bytes, at, length);
        return at + length;
    }
    for (;;) {
        const auto lineEnd = bytes.find("\r\n", at);
        if (lineEnd == std::string::npos) return std::nullopt;
        const std::size_t size = std::strtoul(bytes.c_str() + at, nullptr, 16);
        if (bytes.size() < lineEnd + 2 + size + 2) return std::nullopt;
        body.append(bytes, lineEnd + 2, size);
        at = lineEnd + 2 + size + 2;
        if (size == 0) return at;
    }
}

struct RawResponse {
    int status = 0;
    std::string head;
    std::string body;
    bool connectionClose = false;
};

class LoopbackClient {
public:
    explicit LoopbackClient(std::uint16_t port) {
        m_fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("connect failed");
        int one = 1;
        ::setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    }
    ~LoopbackClient() {
        if (m_fd >= 0) ::close(m_fd);
    }
    LoopbackClient(const LoopbackClient&) = delete;
    LoopbackClient& operator=(const LoopbackClient&) = delete;

    int fd() const noexcept { return m_fd; }

    // False once the server refused the bytes (it closed the connection).
    bool send(std::string_view bytes, bool bytewise = false) {
        const std::size_t step = bytewise ? 1 : bytes.size();
        for (std::size_t at = 0; at < bytes.size(); at += step) {
            const std::size_t size = std::min(step, bytes.size() - at);
            if (::send(m_fd, bytes.data() + at, size, MSG_NOSIGNAL) != static_cast<ssize_t>(size))
                return false;
        }
        return true;
    }

    // Waits at most `timeout` for bytes; false when none came (or the peer closed: see closed()).
    bool receiveSome(std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        pollfd entry{m_fd, POLLIN, 0};
        if (::poll(&entry, 1, static_cast<int>(timeout.count())) <= 0) return false;
        char buffer[65536];
        const ssize_t got = ::recv(m_fd, buffer, sizeof buffer, 0);
        if (got <= 0) {
            m_closed = true;
            return false;
        }
        m_received.append(buffer, static_cast<std::size_t>(got));
        return true;
    }

    // Everything until the server closes, at most `timeout` in all.
    void receiveUntilClosed(std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        while (!m_closed && std::chrono::steady_clock::now() < deadline)
            receiveSome(std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now()));
    }

    // The next whole response (Content-Length or chunked body, none for `headRequest`), waiting at
    // most `timeout`; status 0 when none came.
    RawResponse readResponse(bool headRequest = false,
                             std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        RawResponse response;
        while (!takeResponse(response, headRequest)) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            if (left.count() <= 0 || m_closed || !receiveSome(left)) return {};
        }
        return response;
    }

    // Splits every whole response received so far off the front.
    std::vector<RawResponse> takeResponses() {
        std::vector<RawResponse> responses;
        RawResponse response;
        while (takeResponse(response, false))
            responses.push_back(std::move(response));
        return responses;
    }

    bool closed() const noexcept { return m_closed; }
    const std::string& received() const noexcept { return m_received; }

private:
    bool takeResponse(RawResponse& response, bool headRequest) {
        const auto headEnd = m_received.find("\r\n\r\n");
        if (headEnd == std::string::npos || m_received.compare(0, 9, "HTTP/1.1 ") != 0) return false;
        std::string head = m_received.substr(0, headEnd + 4);
        const int status = std::atoi(head.c_str() + 9);
        std::string lower = head;
        for (char& c : lower)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        const bool noBody = headRequest || status < 200 || status == 204 || status == 304;
        const auto length = lower.find("content-length: ");
        const std::size_t size = noBody || length == std::string::npos
                                     ? 0
                                     : std::strtoul(lower.c_str() + length + 16, nullptr, 10);
        std::string body;
        const auto end =
            bodyEnd(m_received, headEnd + 4,
                    !noBody && lower.find("transfer-encoding: chunked") != std::string::npos, size, body);
        if (!end) return false;
        response.status = status;
        response.connectionClose = lower.find("connection: close") != std::string::npos;
        response.head = std::move(head);
        response.body = std::move(body);
        m_received.erase(0, *end);
        return true;
    }

    int m_fd = -1;
    bool m_closed = false;
    std::string m_received;
};

// Polls `condition` until it holds or `timeout` passed; the result of the last poll.
inline bool waitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace Zel::Net::Http::Testing
