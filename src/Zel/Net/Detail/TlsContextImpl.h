#pragma once

#include <Zel/Net/TlsContext.h>
#include <boost/asio/ssl/context.hpp>
#include <memory>
#include <mutex>
#include <string>

namespace Zel::Net::Detail {

struct TlsContextImpl {
    mutable std::mutex mutex; // guards `context`, which reload() replaces
    std::shared_ptr<boost::asio::ssl::context> context;
    bool server = false;
    bool verify = false;
    std::string certificateFile;
    std::string keyFile;

    // The context for the next handshake; streams keep the one they started with.
    std::shared_ptr<boost::asio::ssl::context> current() const;
};

// For the library's own servers, which shake hands on their I/O threads rather than via TlsStream.
struct TlsContextAccess {
    static const std::shared_ptr<TlsContextImpl>& impl(const TlsContext& context) noexcept {
        return context.m_impl;
    }
};

} // namespace Zel::Net::Detail
