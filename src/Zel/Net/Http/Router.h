#pragma once

#include <Zel/Net/Http/IRequestHandler.h>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zel::Log {
class ILog;
}

namespace Zel::Net::Http {

// Routes requests by method and path to handlers, through a chain of middleware.
//
//     auto router = std::make_shared<Router>();
//     router->use(Router::bearerAuth("s3cret"));
//     router->get("/notes/{id:int}", [](Request&, Response& response, const Router::Params& params) {
//         response.setBodyJson(loadNote(params.integer("id")));
//     });
//
// A pattern is a path of segments; a segment is literal text, "{name}" (any non-empty segment,
// percent-decoded) or "{name:int}" (an optional '-' and digits that fit 64 bits). The first route
// added that matches wins; the query string takes no part in matching. A GET route also answers
// HEAD. A path that no route matches goes to the fallback (404 "Not Found" unless set); a path
// matched only under other methods answers 405 with an "Allow" header listing them.
//
// Middleware runs in the order added, each deciding whether to call next(); the route (or the
// 404/405 answer) runs at the end of the chain.
//
// Thread safety: configure before serving; handle() may then run on any number of threads at once.
class ZEL_API Router : public IRequestHandler {
public:
    // The values the typed segments of the matched pattern captured.
    class ZEL_API Params {
    public:
        // The text, or the empty string when the pattern has no such name.
        std::string_view get(std::string_view name) const noexcept;
        // The value of an {name:int} segment; ArgumentException for an unknown name.
        std::int64_t integer(std::string_view name) const;
        std::size_t size() const noexcept { return m_values.size(); }

    private:
        friend class Router;
        std::vector<std::pair<std::string_view, std::string>> m_values;
    };

    using Handler = std::function<void(Request&, Response&, const Params&)>;
    using Next = std::function<void()>;
    using Middleware = std::function<void(Request&, Response&, const Next&)>;

    Router();
    ~Router() override;

    // ArgumentException "Router: invalid pattern | pattern=..." for a pattern not starting with '/'
    // or with a malformed {...} segment.
    Router& add(std::string method, std::string_view pattern, Handler handler);
    Router& get(std::string_view pattern, Handler handler) { return add("GET", pattern, std::move(handler)); }
    Router& post(std::string_view pattern, Handler handler) {
        return add("POST", pattern, std::move(handler));
    }
    Router& put(std::string_view pattern, Handler handler) { return add("PUT", pattern, std::move(handler)); }
    Router& remove(std::string_view pattern, Handler handler) {
        return add("DELETE", pattern, std::move(handler));
    }
    Router& use(Middleware middleware);
    // Answers the paths no route matches (a StaticFileHandler, say).
    Router& setFallback(std::shared_ptr<IRequestHandler> fallback);

    void handle(Request& request, Response& response) override;

    // Logs "HTTP request | method=.. | uri=.. | status=.. | ms=.." at Info after each request.
    static Middleware requestLog(std::shared_ptr<Log::ILog> log);
    // Answers 401 with "WWW-Authenticate: Bearer" unless "Authorization" is "Bearer <token>".
    // The comparison takes the same time wherever the texts differ.
    static Middleware bearerAuth(std::string token);
    // Adds "Access-Control-Allow-Origin" to every answer to a request with an "Origin", and answers
    // preflight requests (OPTIONS with "Access-Control-Request-Method") itself with 204.
    static Middleware cors(std::string allowedOrigin = "*",
                           std::string allowedMethods = "GET, POST, PUT, DELETE, OPTIONS",
                           std::string allowedHeaders = "Authorization, Content-Type");

    // The path of a request target: up to '?' or '#', without percent-decoding.
    static std::string_view pathOf(std::string_view target) noexcept;
    // Percent-decoding; false for a malformed escape.
    static bool decode(std::string_view text, std::string& out);

private:
    struct Segment {
        enum class Kind { Literal, Text, Integer } kind;
        std::string text; // the literal, or the parameter's name
    };
    struct Route {
        std::string method;
        std::vector<Segment> segments;
        Handler handler;
    };

    static bool match(const Route& route, std::string_view path, Params& params);
    void route(Request& request, Response& response);

    std::vector<Route> m_routes;
    std::vector<Middleware> m_middleware;
    std::shared_ptr<IRequestHandler> m_fallback;
};

} // namespace Zel::Net::Http
