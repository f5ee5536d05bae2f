#include <Zel/ArgumentException.h>
#include <Zel/IO/BufferedStream.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Net/Http/Client.h>
#include <Zel/Net/Http/Detail/ClientConnection.h>
#include <Zel/Net/Http/Detail/ResponseFraming.h>
#include <Zel/Net/Http/HttpException.h>
#include <Zel/Net/Http/Method.h>
#include <Zel/Net/Http/OAuth2ClientCredentials.h>
#include <Zel/Net/Http/Reader.h>
#include <Zel/Url.h>
#include <Zel/Variant.h>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

namespace Zel::Net::Http {

namespace {

using Clock = std::chrono::steady_clock;

// Where a connection goes: connections are pooled by it, and "Authorization" never leaves it.
struct Origin {
    std::string scheme;
    std::string host;
    int port = 0;

    bool tls() const noexcept { return scheme == "https"; }
    std::string key() const { return scheme + "://" + host + ":" + std::to_string(port); }
    std::string hostHeader() const {
        std::string text;
        if (host.find(':') != std::string::npos) {
            text.append("[").append(host).append("]");
        } else {
            text = host;
        }
        if (port != (tls() ? 443 : 80)) text.append(":").append(std::to_string(port));
        return text;
    }
    friend bool operator==(const Origin&, const Origin&) = default;
};

Origin originOf(const Url& url) {
    Origin origin{url.scheme(), url.host(), url.effectivePort()};
    for (char& c : origin.scheme)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if ((origin.scheme != "http" && origin.scheme != "https") || origin.host.empty()) {
        throw ArgumentException("HTTP client: an absolute http or https URL is needed | url=" +
                                url.toString());
    }
    return origin;
}

std::string targetOf(const Url& url) {
    std::string target = url.path().empty() ? "/" : url.path();
    if (!url.query().empty()) target += "?" + url.query();
    return target;
}

// A Location value taken against the URL that answered with it.
Url resolve(const Url& base, std::string_view location) {
    location = location.substr(0, location.find('#'));
    if (location.find("://") != std::string_view::npos) return Url(location);
    if (location.starts_with("//")) return Url(base.scheme() + ":" + std::string(location));
    Url next = base;
    std::string_view query;
    if (const std::size_t mark = location.find('?'); mark != std::string_view::npos) {
        query = location.substr(mark + 1);
        location = location.substr(0, mark);
    }
    std::string path(location);
    if (!location.starts_with("/")) {
        const std::string& from = base.path();
        const std::size_t slash = from.rfind('/');
        path = (slash == std::string::npos ? "/" : from.substr(0, slash + 1)) + path;
    }
    next.setPath(std::move(path));
    next.setQuery(std::string(query));
    next.setFragment({});
    return next;
}

bool isRedirect(std::int32_t status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

bool hasToken(std::string_view list, std::string_view token) {
    for (;;) {
        const std::size_t comma = list.find(',');
        std::string_view member = list.substr(0, comma);
        while (!member.empty() && member.front() == ' ')
            member.remove_prefix(1);
        while (!member.empty() && member.back() == ' ')
            member.remove_suffix(1);
        if (Headers::sameName(member, token)) return true;
        if (comma == std::string_view::npos) return false;
        list.remove_prefix(comma + 1);
    }
}

// Whether the server lets the connection carry another exchange. Unlike Message::keepAlive the
// tokens compare without regard to case, as servers write them either way.
bool serverKeepsAlive(const Response& response) {
    const auto connection = response.headers().find("Connection");
    if (response.version().major() == 1 && response.version().minor() == 0) {
        return connection && hasToken(*connection, "keep-alive");
    }
    return !connection || !hasToken(*connection, "close");
}

// A request body: sent from where the stream stood when the call began, and sent again (for a
// redirect or a retry) only when the stream can go back there.
struct Body {
    std::shared_ptr<IO::IStream> stream;
    std::int64_t length = -1; // -1 unknown: sent chunked
    std::int64_t start = 0;

    static Body of(std::shared_ptr<IO::IStream> stream) {
        Body body;
        if (!stream) return body;
        body.start = stream->can(IO::IStream::Seekable) ? stream->getPosition() : 0;
        if (stream->can(IO::IStream::LengthKnown)) {
            body.length = stream->getLength() - std::max<std::int64_t>(stream->getPosition(), 0);
        }
        body.stream = std::move(stream);
        return body;
    }
    bool present() const noexcept { return stream != nullptr; }
    bool rewind() {
        if (!stream) return true;
        if (!stream->can(IO::IStream::Seekable)) return false;
        stream->setPosition(start);
        return true;
    }
};

struct PooledConnection {
    std::shared_ptr<Detail::ClientConnection> connection;
    std::shared_ptr<IO::BufferedStream> buffered;
    Clock::time_point idleSince;
};

struct Exchanged {
    Response head;
    std::string body;
    bool reusable = true;
};

constexpr std::size_t inlineBodyLimit = 64 * 1024;

} // namespace

struct Client::Impl {
    explicit Impl(ClientOptions clientOptions) : options(std::move(clientOptions)) {}

    const ClientOptions options;
    const Reader reader;
    mutable std::mutex mutex;
    std::map<std::string, std::vector<PooledConnection>, std::less<>> idle; // most recently used last
    std::shared_ptr<Detail::TlsClientContext> tls;
    std::string bearerToken;
    std::shared_ptr<OAuth2ClientCredentials> oauth;

    ClientResponse call(std::string method, std::string_view url, Headers headers, Body body);
    Exchanged exchange(const Origin& origin, const std::string& method, const std::string& head, Body& body,
                       bool expect, Clock::time_point deadline);
    Exchanged roundTrip(PooledConnection& pooled, const std::string& method, std::string head, Body& body,
                        bool expect);
    // The next response that is final, or the 100 Continue when `stopAtContinue`.
    Exchanged readResponse(PooledConnection& pooled, bool answersHead, bool stopAtContinue);
    void sendBody(IO::IStream& output, Body& body);

    PooledConnection acquire(const Origin& origin, Clock::time_point deadline, bool& reused);
    void release(const Origin& origin, PooledConnection pooled);
    void sweep(Clock::time_point now);
};

ClientResponse Client::Impl::call(std::string method, std::string_view url, Headers headers, Body body) {
    const Clock::time_point started = Clock::now();
    const Clock::time_point deadline =
        options.totalTimeout().count() > 0 ? started + options.totalTimeout() : Clock::time_point::max();
    Url current(url);
    const Origin first = originOf(current);
    bool authRetried = false;
    int redirects = 0;
    for (;;) {
        const Origin origin = originOf(current);
        if (Clock::now() >= deadline) {
            throw HttpException("HTTP client: request timed out | url=" + std::string(url) +
                                " | timeoutMs=" + std::to_string(options.totalTimeout().count()));
        }
        const bool sameOrigin = origin == first;
        if (!sameOrigin) headers.erase("Authorization");

        std::string token;
        std::shared_ptr<OAuth2ClientCredentials> credentials;
        if (sameOrigin && !headers.isSet("Authorization")) {
            std::lock_guard lock(mutex);
            credentials = oauth;
            token = bearerToken;
        }
        if (credentials) token = credentials->token();

        const bool expect = body.present() && options.expectContinueThreshold() >= 0 &&
                            (body.length < 0 || body.length >= options.expectContinueThreshold());
        std::string head;
        head.reserve(512);
        head.append(method).append(" ").append(targetOf(current)).append(" HTTP/1.1\r\nHost: ");
        head.append(origin.hostHeader()).append("\r\n");
        for (const auto& [name, value] : headers) {
            if (Headers::sameName(name, "Host") || Headers::sameName(name, Headers::CONTENT_LENGTH) ||
                Headers::sameName(name, "Transfer-Encoding") || Headers::sameName(name, "Expect")) {
                continue;
            }
            head.append(name).append(": ").append(value).append("\r\n");
        }
        if (!token.empty()) head.append("Authorization: Bearer ").append(token).append("\r\n");
        if (body.present() && body.length >= 0) {
            head.append("Content-Length: ").append(std::to_string(body.length)).append("\r\n");
        } else if (body.present()) {
            head.append("Transfer-Encoding: chunked\r\n");
        } else if (Method::hasRequestBody(method)) {
            head.append("Content-Length: 0\r\n");
        }
        if (expect) head.append("Expect: 100-continue\r\n");
        head.append("\r\n");

        Exchanged answer = exchange(origin, method, head, body, expect, deadline);
        const std::int32_t status = answer.head.statusCode();

        if (status == 401 && credentials && !authRetried && body.rewind()) {
            // The token may have been revoked before its time: one fresh one is worth a try.
            credentials->invalidate(token);
            authRetried = true;
            continue;
        }
        if (isRedirect(status) && options.maxRedirects() > 0) {
            const auto location = answer.head.headers().find("Location");
            if (location && !location->empty()) {
                if (redirects++ == options.maxRedirects()) {
                    throw HttpException("HTTP client: too many redirects | url=" + std::string(url) +
                                        " | limit=" + std::to_string(options.maxRedirects()));
                }
                Url next = resolve(current, *location);
                if (const std::string scheme = next.scheme(); scheme != "http" && scheme != "https") {
                    throw HttpException(
                        "HTTP client: redirect to a URL that is not http or https | location=" +
                        std::string(*location));
                }
                if (status != 307 && status != 308) {
                    if (method != "HEAD") method = Method::GET;
                    body = Body{};
                    headers.erase(Headers::CONTENT_TYPE);
                    current = std::move(next);
                    continue;
                }
                if (body.rewind()) {
                    current = std::move(next);
                    continue;
                }
            }
        }
        return ClientResponse(std::move(answer.head), std::move(answer.body), current.toString());
    }
}

Exchanged Client::Impl::exchange(const Origin& origin, const std::string& method, const std::string& head,
                                 Body& body, bool expect, Clock::time_point deadline) {
    for (int attempt = 0;; ++attempt) {
        bool reused = false;
        PooledConnection pooled = acquire(origin, deadline, reused);
        pooled.connection->setDeadlines(options.readTimeout(), deadline);
        const std::int64_t before = pooled.connection->bytesRead();
        try {
            Exchanged answer = roundTrip(pooled, method, head, body, expect);
            if (answer.reusable && !pooled.connection->broken()) release(origin, std::move(pooled));
            return answer;
        } catch (const HttpException&) {
            // A kept connection the server closed just before our request arrived: it got nothing of
            // it that it acted on, so the request goes once more on a new connection.
            const bool nothingBack =
                pooled.connection->bytesRead() == before && !pooled.connection->timedOut();
            if (reused && nothingBack && attempt == 0 && body.rewind()) continue;
            throw;
        }
    }
}

Exchanged Client::Impl::roundTrip(PooledConnection& pooled, const std::string& method, std::string head,
                                  Body& body, bool expect) {
    Detail::ClientConnection& connection = *pooled.connection;
    const bool answersHead = method == "HEAD";
    if (body.present() && !expect && body.length >= 0 &&
        static_cast<std::size_t>(body.length) <= inlineBodyLimit) {
        // Small bodies go with the head in one write: one packet where the server waits for both.
        const std::size_t headSize = head.size();
        head.resize(headSize + static_cast<std::size_t>(body.length));
        std::size_t got = 0;
        while (got < static_cast<std::size_t>(body.length)) {
            const std::size_t n =
                body.stream->read(head.data() + headSize + got, static_cast<std::size_t>(body.length) - got);
            if (n == 0) {
                throw HttpException("HTTP client: request body shorter than its length | expected=" +
                                    std::to_string(body.length) + " | read=" + std::to_string(got));
            }
            got += n;
        }
        connection.write(head.data(), head.size());
    } else {
        connection.write(head.data(), head.size());
        if (expect) {
            const bool answered = pooled.buffered->bufferedBegin() != pooled.buffered->bufferedEnd() ||
                                  connection.waitReadable(options.expectContinueTimeout());
            if (answered) {
                Exchanged interim = readResponse(pooled, answersHead, true);
                if (interim.head.statusCode() != 100) {
                    // Refused before the body was sent: the server may still wait for it, so the
                    // connection cannot carry another request.
                    interim.reusable = false;
                    return interim;
                }
            }
        }
        if (body.present()) sendBody(connection, body);
    }
    return readResponse(pooled, answersHead, false);
}

Exchanged Client::Impl::readResponse(PooledConnection& pooled, bool answersHead, bool stopAtContinue) {
    IO::BufferedStream& input = *pooled.buffered;
    for (;;) {
        Detail::FramingLines lines;
        Detail::bufferResponseHead(input, options.maxHeadSize(), lines);
        Exchanged answer;
        Response& response = answer.head;
        try {
            reader.readResponse(pooled.buffered, response);
        } catch (const HttpException&) {
            // The head is parsed by then: the reader refused only its own choice of body stream,
            // which is made below, more strictly, instead.
        } catch (const GenericException& error) {
            throw HttpException(std::string("HTTP client: malformed response head | error=") + error.what());
        }
        const Detail::ResponseFraming framing = Detail::checkResponseFraming(response, lines, answersHead);
        const std::int32_t status = response.statusCode();
        if (status < 200) {
            if (status == 101)
                throw HttpException("HTTP client: protocol switch that was not asked for | status=101");
            if (status == 100 && stopAtContinue) return answer;
            continue;
        }
        // The reader's body stream reads the connection; the body is read here instead.
        std::optional<std::string> contentLength;
        if (const auto value = response.headers().find(Headers::CONTENT_LENGTH))
            contentLength.emplace(*value);
        response.setBody(nullptr);
        if (framing.framing == Detail::BodyFraming::ContentLength) {
            response.headers().setContentLength(framing.length);
        } else if (contentLength) {
            response.headers().set(Headers::CONTENT_LENGTH, *contentLength);
        } else {
            response.headers().erase(Headers::CONTENT_LENGTH);
        }
        Detail::readResponseBody(input, framing, options.maxBodySize(), answer.body);
        answer.reusable = framing.framing != Detail::BodyFraming::UntilClose && serverKeepsAlive(response) &&
                          input.bufferedBegin() == input.bufferedEnd();
        return answer;
    }
}

void Client::Impl::sendBody(IO::IStream& output, Body& body) {
    char buffer[16 * 1024];
    std::int64_t sent = 0;
    for (;;) {
        std::size_t wanted = sizeof buffer;
        if (body.length >= 0)
            wanted = static_cast<std::size_t>(std::min<std::int64_t>(body.length - sent, sizeof buffer));
        if (wanted == 0) break;
        const std::size_t got = body.stream->read(buffer, wanted);
        if (got == 0) break;
        if (body.length < 0) {
            char size[24];
            const int length = std::snprintf(size, sizeof size, "%zx\r\n", got);
            output.write(size, static_cast<std::size_t>(length));
            output.write(buffer, got);
            output.write("\r\n", 2);
        } else {
            output.write(buffer, got);
        }
        sent += static_cast<std::int64_t>(got);
    }
    if (body.length < 0) {
        output.write("0\r\n\r\n", 5);
    } else if (sent != body.length) {
        throw HttpException("HTTP client: request body shorter than its length | expected=" +
                            std::to_string(body.length) + " | read=" + std::to_string(sent));
    }
}

PooledConnection Client::Impl::acquire(const Origin& origin, Clock::time_point deadline, bool& reused) {
    const std::string key = origin.key();
    std::shared_ptr<Detail::TlsClientContext> context;
    for (;;) {
        PooledConnection pooled;
        {
            std::lock_guard lock(mutex);
            sweep(Clock::now());
            const auto found = idle.find(key);
            if (found == idle.end() || found->second.empty()) {
                if (origin.tls() && !tls)
                    tls = Detail::makeTlsClientContext(options.verifyPeer(), options.caFile());
                context = origin.tls() ? tls : nullptr;
                break;
            }
            pooled = std::move(found->second.back());
            found->second.pop_back();
        }
        // Outside the lock: it asks the socket.
        if (pooled.connection->idleAlive()) {
            reused = true;
            return pooled;
        }
    }
    const Clock::time_point connectDeadline = std::min(Clock::now() + options.connectTimeout(), deadline);
    PooledConnection pooled;
    pooled.connection = std::make_shared<Detail::ClientConnection>(
        origin.host, origin.port, std::move(context), connectDeadline, deadline);
    pooled.buffered = std::make_shared<IO::BufferedStream>(pooled.connection);
    return pooled;
}

void Client::Impl::release(const Origin& origin, PooledConnection pooled) {
    if (options.maxIdleConnections() == 0) return;
    const Clock::time_point now = Clock::now();
    pooled.idleSince = now;
    std::lock_guard lock(mutex);
    auto& list = idle[origin.key()];
    list.push_back(std::move(pooled));
    if (list.size() > options.maxIdleConnections()) list.erase(list.begin());
    sweep(now);
}

void Client::Impl::sweep(Clock::time_point now) {
    for (auto host = idle.begin(); host != idle.end();) {
        auto& list = host->second;
        std::erase_if(list, [&](const PooledConnection& pooled) {
            return now - pooled.idleSince >= options.idleTimeout();
        });
        host = list.empty() ? idle.erase(host) : std::next(host);
    }
}

Client::Client(ClientOptions options) : m_impl(std::make_unique<Impl>(std::move(options))) {}

Client::~Client() = default;

const ClientOptions& Client::options() const noexcept {
    return m_impl->options;
}

Client& Client::setBearerToken(std::string token) {
    std::lock_guard lock(m_impl->mutex);
    m_impl->bearerToken = std::move(token);
    return *this;
}

Client& Client::setOAuth2(std::shared_ptr<OAuth2ClientCredentials> credentials) {
    std::lock_guard lock(m_impl->mutex);
    m_impl->oauth = std::move(credentials);
    return *this;
}

ClientResponse Client::request(std::string_view method, std::string_view url, const Headers& headers,
                               std::string body) {
    return m_impl->call(std::string(method), url, headers,
                        body.empty() ? Body{}
                                     : Body::of(std::make_shared<IO::StringStream>(std::move(body))));
}

ClientResponse Client::request(std::string_view method, std::string_view url, const Headers& headers,
                               std::shared_ptr<IO::IStream> body) {
    return m_impl->call(std::string(method), url, headers, Body::of(std::move(body)));
}

ClientResponse Client::get(std::string_view url, const Headers& headers) {
    return request(Method::GET, url, headers);
}

ClientResponse Client::head(std::string_view url, const Headers& headers) {
    return request("HEAD", url, headers);
}

ClientResponse Client::del(std::string_view url, const Headers& headers) {
    return request(Method::DELETE, url, headers);
}

ClientResponse Client::post(std::string_view url, std::string body, std::string_view contentType,
                            const Headers& headers) {
    Headers withType = headers;
    withType.setContentType(contentType);
    return request(Method::POST, url, withType, std::move(body));
}

ClientResponse Client::put(std::string_view url, std::string body, std::string_view contentType,
                           const Headers& headers) {
    Headers withType = headers;
    withType.setContentType(contentType);
    return request(Method::PUT, url, withType, std::move(body));
}

ClientResponse Client::postJson(std::string_view url, const Variant& value, const Headers& headers) {
    return post(url, value.toJson(), "application/json", headers);
}

std::size_t Client::idleConnections() const {
    std::lock_guard lock(m_impl->mutex);
    std::size_t count = 0;
    for (const auto& [key, list] : m_impl->idle)
        count += list.size();
    return count;
}

void Client::closeIdleConnections() {
    std::map<std::string, std::vector<PooledConnection>, std::less<>> closing;
    std::lock_guard lock(m_impl->mutex);
    closing.swap(m_impl->idle);
}

} // namespace Zel::Net::Http
