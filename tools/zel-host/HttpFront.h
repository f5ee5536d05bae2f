#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace Zel::Log {
class ILog;
}
namespace Zel::Net::Http {
class Server;
}
namespace Zel::Tasks {
class Manager;
}

namespace ZelHost {

// The host's services over HTTP:
//
//     POST /services/{service}/{operation}   body: the params as JSON (empty means {})
//     GET  /health                           {"status":"ok"}
//     GET  /...                              the static folder, when one is configured
//
// A call answers the reply envelope the host produced, as it is. A failure reply ("result" 1359)
// is answered with a status that fits its "errRef" (see statusFor), so that plain HTTP clients can
// tell a missing operation from a crash without reading the body. With a bearer token every path
// but /health needs "Authorization: Bearer <token>".
class HttpFront {
public:
    // Returns the reply envelope for one call; may be called on several threads at once.
    using Callback = std::function<std::string(const std::string& service, const std::string& operation,
                                               const std::string& paramsJson)>;

    struct Options {
        std::string address = "127.0.0.1";
        std::uint16_t port = 8080;          // 0: any free port
        std::filesystem::path staticFolder; // empty: none
        std::string bearerToken;            // empty: no authentication
        int ioThreads = 2;
        // The calls run on these, so that one waiting on the database holds no I/O thread and the
        // sockets are still accepted and read; 0: on the I/O threads.
        int callThreads = 4;
    };

    HttpFront(Callback callback, Options options, std::shared_ptr<Zel::Log::ILog> log = nullptr);
    ~HttpFront();

    HttpFront(const HttpFront&) = delete;
    HttpFront& operator=(const HttpFront&) = delete;

    void start();
    void stop();
    std::uint16_t port() const;

    // The HTTP status for a reply envelope: 200 for success, else by "errRef".
    static int statusFor(const std::string& replyJson);

private:
    std::unique_ptr<Zel::Tasks::Manager> m_tasks; // outlives the server, whose calls it runs
    std::unique_ptr<Zel::Net::Http::Server> m_server;
};

} // namespace ZelHost
