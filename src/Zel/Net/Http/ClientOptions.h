#pragma once

#include <Zel/Export.h>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Zel::Net::Http {

// How a Client connects, waits, follows redirects and keeps connections. A plain value; setters
// return the object so that options read as one expression:
//
//     ClientOptions().setReadTimeout(5s).setMaxRedirects(3).setCaFile("/etc/zel/ca.pem")
class ZEL_API ClientOptions {
public:
    using Milliseconds = std::chrono::milliseconds;

    ClientOptions() = default;

    // Resolving, connecting and the TLS handshake together.
    Milliseconds connectTimeout() const noexcept { return m_connectTimeout; }
    ClientOptions& setConnectTimeout(Milliseconds timeout) noexcept { return set(m_connectTimeout, timeout); }
    // The longest wait for any one read or write on the connection.
    Milliseconds readTimeout() const noexcept { return m_readTimeout; }
    ClientOptions& setReadTimeout(Milliseconds timeout) noexcept { return set(m_readTimeout, timeout); }
    // The whole call, redirects and retries included; 0 for no limit beyond the others.
    Milliseconds totalTimeout() const noexcept { return m_totalTimeout; }
    ClientOptions& setTotalTimeout(Milliseconds timeout) noexcept { return set(m_totalTimeout, timeout); }

    // Redirects followed in one call; one more fails the call. 0 hands every redirect back as it is.
    int maxRedirects() const noexcept { return m_maxRedirects; }
    ClientOptions& setMaxRedirects(int count) noexcept { return set(m_maxRedirects, count); }

    // Idle connections kept per scheme, host and port, and how long one may stay idle.
    std::size_t maxIdleConnections() const noexcept { return m_maxIdleConnections; }
    ClientOptions& setMaxIdleConnections(std::size_t count) noexcept {
        return set(m_maxIdleConnections, count);
    }
    Milliseconds idleTimeout() const noexcept { return m_idleTimeout; }
    ClientOptions& setIdleTimeout(Milliseconds timeout) noexcept { return set(m_idleTimeout, timeout); }

    // Limits on what a server may send: the head of one response, and its body (bodies are held in
    // memory).
    std::size_t maxHeadSize() const noexcept { return m_maxHeadSize; }
    ClientOptions& setMaxHeadSize(std::size_t bytes) noexcept { return set(m_maxHeadSize, bytes); }
    std::int64_t maxBodySize() const noexcept { return m_maxBodySize; }
    ClientOptions& setMaxBodySize(std::int64_t bytes) noexcept { return set(m_maxBodySize, bytes); }

    // Request bodies of at least this size (and those of unknown size) are sent only after the
    // server answers "Expect: 100-continue", or after expectContinueTimeout without an answer, so
    // that a server refusing the request is not sent the body first. -1 never asks.
    std::int64_t expectContinueThreshold() const noexcept { return m_expectContinueThreshold; }
    ClientOptions& setExpectContinueThreshold(std::int64_t bytes) noexcept {
        return set(m_expectContinueThreshold, bytes);
    }
    Milliseconds expectContinueTimeout() const noexcept { return m_expectContinueTimeout; }
    ClientOptions& setExpectContinueTimeout(Milliseconds timeout) noexcept {
        return set(m_expectContinueTimeout, timeout);
    }

    // TLS: the server's certificate chain and host name are verified unless this is turned off.
    bool verifyPeer() const noexcept { return m_verifyPeer; }
    ClientOptions& setVerifyPeer(bool verify) noexcept { return set(m_verifyPeer, verify); }
    // PEM certificates to trust instead of the system's store; empty for the system's store.
    const std::string& caFile() const noexcept { return m_caFile; }
    ClientOptions& setCaFile(std::string path) {
        m_caFile = std::move(path);
        return *this;
    }

private:
    template <class T>
    ClientOptions& set(T& field, T value) noexcept {
        field = value;
        return *this;
    }

    Milliseconds m_connectTimeout{10'000};
    Milliseconds m_readTimeout{30'000};
    Milliseconds m_totalTimeout{0};
    int m_maxRedirects = 5;
    std::size_t m_maxIdleConnections = 8;
    Milliseconds m_idleTimeout{30'000};
    std::size_t m_maxHeadSize = 64 * 1024;
    std::int64_t m_maxBodySize = 64 * 1024 * 1024;
    std::int64_t m_expectContinueThreshold = 1024 * 1024;
    Milliseconds m_expectContinueTimeout{1'000};
    bool m_verifyPeer = true;
    std::string m_caFile;
};

} // namespace Zel::Net::Http
