#include <Zel/ArgumentException.h>
#include <Zel/Log/ILog.h>
#include <Zel/Net/Http/NotFoundHandler.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Router.h>
#include <Zel/StringUtils.h>
#include <algorithm>
#include <charconv>
#include <chrono>
#include <set>

namespace Zel::Net::Http {

namespace {

// Splits off the next segment of a path that starts after a '/'.
std::string_view nextSegment(std::string_view& rest) noexcept {
    const auto slash = rest.find('/');
    const std::string_view segment = rest.substr(0, slash);
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
    return segment;
}

} // namespace

std::string_view Router::Params::get(std::string_view name) const noexcept {
    for (const auto& [key, value] : m_values)
        if (key == name) return value;
    return {};
}

std::int64_t Router::Params::integer(std::string_view name) const {
    for (const auto& [key, value] : m_values) {
        if (key != name) continue;
        std::int64_t result = 0;
        std::from_chars(value.data(), value.data() + value.size(), result);
        return result;
    }
    throw ArgumentException("Router: no such parameter | name=" + std::string(name));
}

Router::Router() : m_fallback(std::make_shared<NotFoundHandler>()) {}

Router::~Router() = default;

Router& Router::add(std::string method, std::string_view pattern, Handler handler) {
    if (pattern.empty() || pattern.front() != '/')
        throw ArgumentException("Router: invalid pattern | pattern=" + std::string(pattern));
    Route route{std::move(method), {}, std::move(handler)};
    std::string_view rest = pattern.substr(1);
    while (true) {
        const std::string_view segment = nextSegment(rest);
        if (!segment.empty() && segment.front() == '{') {
            if (segment.size() < 3 || segment.back() != '}')
                throw ArgumentException("Router: invalid pattern | pattern=" + std::string(pattern));
            std::string_view name = segment.substr(1, segment.size() - 2);
            Segment::Kind kind = Segment::Kind::Text;
            if (const auto colon = name.find(':'); colon != std::string_view::npos) {
                if (name.substr(colon + 1) != "int")
                    throw ArgumentException("Router: invalid pattern | pattern=" + std::string(pattern));
                kind = Segment::Kind::Integer;
                name = name.substr(0, colon);
            }
            if (name.empty())
                throw ArgumentException("Router: invalid pattern | pattern=" + std::string(pattern));
            route.segments.push_back({kind, std::string(name)});
        } else {
            route.segments.push_back({Segment::Kind::Literal, std::string(segment)});
        }
        if (rest.data() == nullptr) break;
    }
    m_routes.push_back(std::move(route));
    return *this;
}

Router& Router::use(Middleware middleware) {
    m_middleware.push_back(std::move(middleware));
    return *this;
}

Router& Router::setFallback(std::shared_ptr<IRequestHandler> fallback) {
    m_fallback = std::move(fallback);
    return *this;
}

std::string_view Router::pathOf(std::string_view target) noexcept {
    return target.substr(0, target.find_first_of("?#"));
}

bool Router::decode(std::string_view text, std::string& out) {
    out.clear();
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (i + 2 >= text.size()) return false;
        const int high = StringUtils::hexDigitValue(text[i + 1]);
        const int low = StringUtils::hexDigitValue(text[i + 2]);
        if (high < 0 || low < 0) return false;
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

bool Router::match(const Route& route, std::string_view path, Params& params) {
    params.m_values.clear();
    if (path.empty() || path.front() != '/') return false;
    std::string_view rest = path.substr(1);
    for (std::size_t i = 0; i < route.segments.size(); ++i) {
        if (rest.data() == nullptr) return false;
        const Segment& expected = route.segments[i];
        const std::string_view segment = nextSegment(rest);
        switch (expected.kind) {
        case Segment::Kind::Literal:
            if (segment != expected.text) return false;
            break;
        case Segment::Kind::Text: {
            std::string value;
            if (segment.empty() || !decode(segment, value)) return false;
            params.m_values.emplace_back(expected.text, std::move(value));
            break;
        }
        case Segment::Kind::Integer: {
            std::int64_t value = 0;
            const char* end = segment.data() + segment.size();
            const auto [stop, error] = std::from_chars(segment.data(), end, value);
            if (segment.empty() || error != std::errc() || stop != end) return false;
            params.m_values.emplace_back(expected.text, std::string(segment));
            break;
        }
        }
    }
    return rest.data() == nullptr;
}

void Router::handle(Request& request, Response& response) {
    // Without middleware there is no chain to build, and building it costs an allocation.
    if (m_middleware.empty()) return route(request, response);
    std::size_t index = 0;
    Next next = [&] {
        if (index < m_middleware.size()) {
            const Middleware& middleware = m_middleware[index++];
            middleware(request, response, next);
        } else {
            route(request, response);
        }
    };
    next();
}

void Router::route(Request& request, Response& response) {
    const std::string_view path = pathOf(request.requestUri());
    const std::string& method = request.method();
    Params params;
    std::set<std::string> allowed;
    for (const Route& candidate : m_routes) {
        if (!match(candidate, path, params)) continue;
        if (candidate.method == method || (method == "HEAD" && candidate.method == "GET")) {
            candidate.handler(request, response, params);
            return;
        }
        allowed.insert(candidate.method);
        if (candidate.method == "GET") allowed.insert("HEAD");
    }
    if (allowed.empty()) {
        m_fallback->handle(request, response);
        return;
    }
    std::string allow;
    for (const std::string& name : allowed)
        allow += (allow.empty() ? "" : ", ") + name;
    response.setStatusCode(405);
    response.headers().set("Allow", allow);
}

Router::Middleware Router::requestLog(std::shared_ptr<Log::ILog> log) {
    return [log = std::move(log)](Request& request, Response& response, const Next& next) {
        const auto started = std::chrono::steady_clock::now();
        next();
        const auto elapsed =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
        log->info("HTTP request | method=" + request.method() + " | uri=" + request.requestUri() +
                  " | status=" + std::to_string(response.statusCode()) +
                  " | ms=" + std::to_string(elapsed.count()));
    };
}

Router::Middleware Router::bearerAuth(std::string token) {
    return [expected = "Bearer " + token](Request& request, Response& response, const Next& next) {
        const std::string_view given = request.headers().find("Authorization").value_or(std::string_view());
        // No early exit on the first difference: the time taken must not tell how much matched.
        unsigned char difference = given.size() == expected.size() ? 0 : 1;
        for (std::size_t i = 0; i < expected.size(); ++i)
            difference |= static_cast<unsigned char>(expected[i] ^ (i < given.size() ? given[i] : 0));
        if (difference != 0) {
            response.setStatusCode(401);
            response.headers().set("WWW-Authenticate", "Bearer");
            return;
        }
        next();
    };
}

Router::Middleware Router::cors(std::string allowedOrigin, std::string allowedMethods,
                                std::string allowedHeaders) {
    return
        [allowedOrigin = std::move(allowedOrigin), allowedMethods = std::move(allowedMethods),
         allowedHeaders = std::move(allowedHeaders)](Request& request, Response& response, const Next& next) {
            if (!request.headers().isSet("Origin")) {
                next();
                return;
            }
            if (request.method() == "OPTIONS" && request.headers().isSet("Access-Control-Request-Method")) {
                response.setStatusCode(204);
                response.headers().set("Access-Control-Allow-Origin", allowedOrigin);
                response.headers().set("Access-Control-Allow-Methods", allowedMethods);
                response.headers().set("Access-Control-Allow-Headers", allowedHeaders);
                response.headers().set("Access-Control-Max-Age", "600");
                return;
            }
            next();
            response.headers().set("Access-Control-Allow-Origin", allowedOrigin);
        };
}

} // namespace Zel::Net::Http
