#pragma once

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

} // namespace Zel::Net::Detail
