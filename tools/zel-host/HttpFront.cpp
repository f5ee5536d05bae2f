#include "HttpFront.h"

#include <Zel/Json/Json.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Router.h>
#include <Zel/Net/Http/Server.h>
#include <Zel/Net/Http/StaticFileHandler.h>
#include <Zel/Platform/ServiceException.h>
#include <Zel/Tasks/Manager.h>
#include <Zel/Tasks/Queue.h>
#include <Zel/Variant.h>
#include <exception>
#include <string_view>
#include <utility>

namespace ZelHost {

namespace {

using namespace Zel::Net::Http;

// The reply of a call that never reached a service: the same envelope, keys and order as a
// service's own error reply, so that a client reads every failure one way.
std::string errorReply(const std::string& message, const std::string& errorRef, const std::string& service,
                       const std::string& operation) {
    return Zel::Platform::ServiceException(errorRef, message, {},
                                           Zel::Platform::Operation{service, operation, {}})
        .toJson();
}

} // namespace

HttpFront::HttpFront(Callback callback, Options options, std::shared_ptr<Zel::Log::ILog> log) {
    auto router = std::make_shared<Router>();
    if (log) router->use(Router::requestLog(log));
    if (!options.bearerToken.empty()) {
        auto authenticate = Router::bearerAuth(options.bearerToken);
        router->use([authenticate](Request& request, Response& response, const Router::Next& next) {
            // Load balancers and probes check the health without credentials.
            if (Router::pathOf(request.requestUri()) == "/health") return next();
            authenticate(request, response, next);
        });
    }
    router->get("/health", [](Request&, Response& response, const Router::Params&) {
        response.setBodyJson(R"({"status":"ok"})");
    });
    router->post(
        "/services/{service}/{operation}",
        [callback = std::move(callback)](Request& request, Response& response, const Router::Params& params) {
            const std::string service(params.get("service"));
            const std::string operation(params.get("operation"));
            std::string paramsJson = "{}";
            std::string reply;
            try {
                if (request.hasBody()) {
                    // Parsed once here so that malformed JSON is the caller's 400, not the
                    // service's failure.
                    const Zel::Variant parsed = request.bodyJson();
                    paramsJson = parsed.toJson();
                }
            } catch (const std::exception& e) {
                reply = errorReply(std::string("Request body is not JSON | error=") + e.what(), "badRequest",
                                   service, operation);
            }
            if (reply.empty()) {
                try {
                    reply = callback(service, operation, paramsJson);
                } catch (const std::exception& e) {
                    reply = errorReply(e.what(), "internalServerError", service, operation);
                }
            }
            response.setStatusCode(statusFor(reply));
            response.setBodyJson(std::move(reply));
        });
    if (!options.staticFolder.empty())
        router->setFallback(std::make_shared<StaticFileHandler>(options.staticFolder));

    Server::Options serverOptions;
    serverOptions.address = options.address;
    serverOptions.port = options.port;
    serverOptions.ioThreads = options.ioThreads;
    std::shared_ptr<Zel::Tasks::Queue> calls;
    if (options.callThreads > 0) {
        m_tasks = std::make_unique<Zel::Tasks::Manager>(nullptr, log, nullptr);
        m_tasks->setWorkerPool(options.callThreads);
        m_tasks->start();
        calls = m_tasks->addQueue("http", options.callThreads);
    }
    m_server = std::make_unique<Server>(std::move(router), std::move(serverOptions), std::move(calls));
}

HttpFront::~HttpFront() {
    m_server.reset();
    if (m_tasks) m_tasks->stop();
}

void HttpFront::start() {
    m_server->start();
}

void HttpFront::stop() {
    m_server->stop();
}

std::uint16_t HttpFront::port() const {
    return m_server->port();
}

int HttpFront::statusFor(const std::string& replyJson) {
    Zel::Variant reply;
    try {
        reply = Zel::Json::parse(replyJson);
    } catch (const std::exception&) {
        return 502;
    }
    if (!reply.isMap() || !reply.contains("result")) return 502;
    // Only the error result is a failure; any other result counts as success, as for every receiver.
    if (static_cast<std::int64_t>(reply["result"]) != Zel::Platform::ServiceException::errorResult)
        return 200;
    const std::string errorRef =
        reply.contains("errRef") ? static_cast<std::string>(reply["errRef"]) : "internalServerError";
    const std::string message = reply.contains("errMsg") ? static_cast<std::string>(reply["errMsg"]) : "";
    if (message.starts_with("Unknown service") || message.starts_with("Unknown operation") ||
        errorRef == "notFound")
        return 404;
    if (errorRef == "badRequest" || errorRef == "invalidParams" || errorRef == "invalidArgument") return 400;
    if (errorRef == "unauthorized") return 401;
    if (errorRef == "forbidden") return 403;
    if (errorRef == "conflict") return 409;
    if (errorRef == "serviceNotStarted") return 503;
    return 500;
}

} // namespace ZelHost
