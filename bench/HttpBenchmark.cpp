// Parses HTTP/1.1 request and response heads and writes a response, with Zel and with
// Boost.Beast's parsers and serializer and the C http-parser side by side in one run, then prints
// Zel's messages per second and MB/s relative to each of them.
//
//     zel-bench-http [--benchmark_min_time=0.5] [--benchmark_filter=...]
//
// Every parser ends with the same result in hand: method, target, version and every header as
// strings the program owns, and for the POST the body parsed as JSON (with Zel's JSON parser for
// all three, so that only the HTTP layer differs). Zel reads from a connection-like stream behind
// a BufferedStream that lives across messages, as on a kept-alive connection; the peers parse
// from the message bytes in memory. "http-parser (callbacks only)" stores nothing and shows the
// bare speed of the C state machine.

#include "CapturingReporter.h"

#include <Zel/IO/AbstractStream.h>
#include <Zel/IO/BufferedStream.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Json/Json.h>
#include <Zel/Net/Http/FramingCheck.h>
#include <Zel/Net/Http/Reader.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Writer.h>

#include <benchmark/benchmark.h>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http.hpp>
#include <http_parser.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

namespace http = boost::beast::http;

// --- the messages -----------------------------------------------------------------------------

const std::string browserGet =
    "GET /docs/index.html?lang=en HTTP/1.1\r\n"
    "Host: www.example.org\r\n"
    "User-Agent: Mozilla/5.0 (Windows NT 10.0; Win64; x64; rv:121.0) Gecko/20100101 "
    "Firefox/121.0\r\n"
    "Accept: text/html,application/xhtml+xml,application/xml;q=0.9,image/avif,image/webp,"
    "*/*;q=0.8\r\n"
    "Accept-Language: en-US,en;q=0.5\r\n"
    "Accept-Encoding: gzip, deflate, br\r\n"
    "Connection: keep-alive\r\n"
    "Cookie: session=8f2c1e0b9a; theme=dark\r\n"
    "Upgrade-Insecure-Requests: 1\r\n"
    "Sec-Fetch-Dest: document\r\n"
    "Sec-Fetch-Mode: navigate\r\n"
    "If-Modified-Since: Tue, 09 Jan 2024 10:15:00 GMT\r\n"
    "\r\n";

const std::string orderJson =
    R"({"customer":42,"items":[{"sku":"A-100","qty":2},{"sku":"B-7","qty":1}],"note":"leave at door"})";

const std::string jsonPost = "POST /api/v1/orders HTTP/1.1\r\n"
                             "Host: api.example.com\r\n"
                             "User-Agent: curl/7.88.1\r\n"
                             "Accept: */*\r\n"
                             "Content-Type: application/json\r\n"
                             "Content-Length: " +
                             std::to_string(orderJson.size()) +
                             "\r\n"
                             "\r\n" +
                             orderJson;

// The head only: the parsers stop at its end and leave the body to whoever wants it.
const std::string responseHead = "HTTP/1.1 200 OK\r\n"
                                 "Server: nginx/1.22.1\r\n"
                                 "Date: Wed, 10 Jan 2024 08:30:12 GMT\r\n"
                                 "Content-Type: text/html\r\n"
                                 "Content-Length: 615\r\n"
                                 "Last-Modified: Tue, 09 Jan 2024 10:15:00 GMT\r\n"
                                 "Connection: keep-alive\r\n"
                                 "ETag: \"659d1d24-267\"\r\n"
                                 "Accept-Ranges: bytes\r\n"
                                 "\r\n";

const std::string body1k = [] {
    std::string text;
    while (text.size() < 1024)
        text += "<li>item " + std::to_string(text.size()) + "</li>\n";
    text.resize(1024);
    return text;
}();

void finish(benchmark::State& state, std::size_t messageSize) {
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * messageSize));
}

// --- Zel ----------------------------------------------------------------------------------------

// A peer that sends the same message over and over on one connection.
class RepeatingSource : public Zel::IO::AbstractStream {
public:
    explicit RepeatingSource(const std::string& message) : m_message(message) {}

    std::size_t read(void* buffer, std::size_t size) override {
        char* out = static_cast<char*>(buffer);
        std::size_t done = 0;
        while (done < size) {
            const std::size_t count = std::min(size - done, m_message.size() - m_at);
            std::memcpy(out + done, m_message.data() + m_at, count);
            done += count;
            m_at = (m_at + count) % m_message.size();
        }
        return done;
    }
    std::uint32_t capabilities() const override { return Readable; }

private:
    const std::string& m_message;
    std::size_t m_at = 0;
};

std::shared_ptr<Zel::IO::BufferedStream> connection(const std::string& message) {
    return std::make_shared<Zel::IO::BufferedStream>(std::make_shared<RepeatingSource>(message));
}

void parseGetZel(benchmark::State& state) {
    const auto stream = connection(browserGet);
    const Zel::Net::Http::Reader reader;
    for (auto _ : state) {
        Zel::Net::Http::Request request;
        reader.readRequest(stream, request);
        benchmark::DoNotOptimize(request);
    }
    finish(state, browserGet.size());
}

void parsePostZel(benchmark::State& state) {
    const auto stream = connection(jsonPost);
    const Zel::Net::Http::Reader reader;
    for (auto _ : state) {
        Zel::Net::Http::Request request;
        reader.readRequest(stream, request);
        Zel::Variant order = request.bodyJson();
        benchmark::DoNotOptimize(order);
    }
    finish(state, jsonPost.size());
}

void parseResponseZel(benchmark::State& state) {
    const auto stream = connection(responseHead);
    const Zel::Net::Http::Reader reader;
    for (auto _ : state) {
        Zel::Net::Http::Response response;
        reader.readResponse(stream, response);
        benchmark::DoNotOptimize(response);
    }
    finish(state, responseHead.size());
}

void writeZel(benchmark::State& state) {
    const Zel::Net::Http::Writer writer;
    Zel::IO::StringStream out;
    for (auto _ : state) {
        Zel::Net::Http::Response response;
        response.headers().set("Server", "Zel");
        response.headers().set("Date", "Wed, 10 Jan 2024 08:30:12 GMT");
        response.headers().setContentType("text/html; charset=utf-8");
        response.headers().set("Cache-Control", "no-cache");
        response.setBody(std::make_shared<Zel::IO::StringStream>(body1k));
        out.clear();
        writer.writeResponse(out, response);
        benchmark::DoNotOptimize(out.str().data());
    }
    state.counters["written"] = static_cast<double>(out.str().size());
    finish(state, out.str().size());
}

// --- Boost.Beast --------------------------------------------------------------------------------

void parseGetBeast(benchmark::State& state) {
    for (auto _ : state) {
        http::request_parser<http::empty_body> parser;
        boost::beast::error_code error;
        parser.put(boost::asio::buffer(browserGet), error);
        if (error || !parser.is_done()) state.SkipWithError("Beast parse error");
        benchmark::DoNotOptimize(parser.get());
    }
    finish(state, browserGet.size());
}

void parsePostBeast(benchmark::State& state) {
    for (auto _ : state) {
        http::request_parser<http::string_body> parser;
        parser.eager(true);
        boost::beast::error_code error;
        parser.put(boost::asio::buffer(jsonPost), error);
        if (error || !parser.is_done()) state.SkipWithError("Beast parse error");
        Zel::Variant order = Zel::Json::parse(parser.get().body());
        benchmark::DoNotOptimize(order);
    }
    finish(state, jsonPost.size());
}

void parseResponseBeast(benchmark::State& state) {
    for (auto _ : state) {
        http::response_parser<http::empty_body> parser;
        boost::beast::error_code error;
        parser.put(boost::asio::buffer(responseHead), error);
        if (error || !parser.is_header_done()) state.SkipWithError("Beast parse error");
        benchmark::DoNotOptimize(parser.get());
    }
    finish(state, responseHead.size());
}

// The SyncWriteStream that http::write needs, appending to a string.
struct StringSink {
    std::string* out;

    template <class ConstBufferSequence>
    std::size_t write_some(const ConstBufferSequence& buffers, boost::beast::error_code& error) {
        error = {};
        std::size_t written = 0;
        for (auto it = boost::asio::buffer_sequence_begin(buffers);
             it != boost::asio::buffer_sequence_end(buffers); ++it) {
            const boost::asio::const_buffer buffer = *it;
            out->append(static_cast<const char*>(buffer.data()), buffer.size());
            written += buffer.size();
        }
        return written;
    }
    template <class ConstBufferSequence>
    std::size_t write_some(const ConstBufferSequence& buffers) {
        boost::beast::error_code error;
        return write_some(buffers, error);
    }
};

void writeBeast(benchmark::State& state) {
    std::string out;
    StringSink sink{&out};
    for (auto _ : state) {
        http::response<http::string_body> response{http::status::ok, 11};
        response.set(http::field::server, "Zel");
        response.set(http::field::date, "Wed, 10 Jan 2024 08:30:12 GMT");
        response.set(http::field::content_type, "text/html; charset=utf-8");
        response.set(http::field::cache_control, "no-cache");
        response.body() = body1k;
        response.prepare_payload();
        out.clear();
        boost::beast::error_code error;
        http::write(sink, response, error);
        if (error) state.SkipWithError("Beast write error");
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["written"] = static_cast<double>(out.size());
    finish(state, out.size());
}

// --- http-parser --------------------------------------------------------------------------------

// What an application keeps of a message parsed with the C parser's callbacks, which hand over
// pieces of the input.
struct Collected {
    std::string url;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::string_view bodyInPlace; // the callbacks-only run points into the input instead
    bool inValue = false;
    bool headDone = false;
    bool complete = false;
};

Collected& collected(http_parser* parser) {
    return *static_cast<Collected*>(parser->data);
}

const http_parser_settings collectingSettings = [] {
    http_parser_settings settings;
    http_parser_settings_init(&settings);
    settings.on_url = [](http_parser* parser, const char* at, std::size_t length) {
        collected(parser).url.append(at, length);
        return 0;
    };
    settings.on_status = [](http_parser* parser, const char* at, std::size_t length) {
        collected(parser).url.append(at, length); // the reason phrase, kept in the same place
        return 0;
    };
    settings.on_header_field = [](http_parser* parser, const char* at, std::size_t length) {
        Collected& message = collected(parser);
        if (message.headers.empty() || message.inValue) message.headers.emplace_back();
        message.inValue = false;
        message.headers.back().first.append(at, length);
        return 0;
    };
    settings.on_header_value = [](http_parser* parser, const char* at, std::size_t length) {
        Collected& message = collected(parser);
        message.inValue = true;
        message.headers.back().second.append(at, length);
        return 0;
    };
    settings.on_headers_complete = [](http_parser* parser) {
        collected(parser).headDone = true;
        return 0;
    };
    settings.on_body = [](http_parser* parser, const char* at, std::size_t length) {
        collected(parser).body.append(at, length);
        return 0;
    };
    settings.on_message_complete = [](http_parser* parser) {
        collected(parser).complete = true;
        return 0;
    };
    return settings;
}();

const http_parser_settings bareSettings = [] {
    http_parser_settings settings;
    http_parser_settings_init(&settings);
    // The whole message is in one buffer, so the body arrives in one piece.
    settings.on_body = [](http_parser* parser, const char* at, std::size_t length) {
        collected(parser).bodyInPlace = std::string_view(at, length);
        return 0;
    };
    settings.on_headers_complete = [](http_parser* parser) {
        collected(parser).headDone = true;
        return 0;
    };
    settings.on_message_complete = [](http_parser* parser) {
        collected(parser).complete = true;
        return 0;
    };
    return settings;
}();

template <bool collect, bool response>
Collected runHttpParser(benchmark::State& state, const std::string& message) {
    Collected result;
    http_parser parser;
    http_parser_init(&parser, response ? HTTP_RESPONSE : HTTP_REQUEST);
    parser.data = &result;
    const std::size_t parsed = http_parser_execute(&parser, collect ? &collectingSettings : &bareSettings,
                                                   message.data(), message.size());
    if (parsed != message.size() || HTTP_PARSER_ERRNO(&parser) != HPE_OK || !result.headDone) {
        state.SkipWithError("http-parser parse error");
    }
    return result;
}

template <bool collect>
void parseGetHttpParser(benchmark::State& state) {
    for (auto _ : state) {
        Collected message = runHttpParser<collect, false>(state, browserGet);
        benchmark::DoNotOptimize(message);
    }
    finish(state, browserGet.size());
}

template <bool collect>
void parsePostHttpParser(benchmark::State& state) {
    for (auto _ : state) {
        Collected message = runHttpParser<collect, false>(state, jsonPost);
        Zel::Variant order = Zel::Json::parse(collect ? std::string_view(message.body) : message.bodyInPlace);
        benchmark::DoNotOptimize(order);
        benchmark::DoNotOptimize(message);
    }
    finish(state, jsonPost.size());
}

template <bool collect>
void parseResponseHttpParser(benchmark::State& state) {
    for (auto _ : state) {
        Collected message = runHttpParser<collect, true>(state, responseHead);
        benchmark::DoNotOptimize(message);
    }
    finish(state, responseHead.size());
}

// The head of a GET read as the server reads it: the Reader, plus the walk over the header lines
// that enforces the cap on their count. With the check, that walk also notes the framing lines and
// FramingCheck::checkRequest runs; the ratio is what the check costs.
template <bool withCheck>
void readHeadZel(benchmark::State& state) {
    const auto stream = connection(browserGet);
    const Zel::Net::Http::Reader reader;
    const Zel::Net::Http::FramingCheck check(1 << 20);
    Zel::Net::Http::FramingCheck::Lines lines;
    const std::string_view head = browserGet;
    const std::string_view block = head.substr(head.find("\r\n") + 2);
    for (auto _ : state) {
        Zel::Net::Http::Request request;
        reader.readRequest(stream, request);
        lines.clear();
        const std::size_t count = lines.scan(block, withCheck);
        benchmark::DoNotOptimize(count);
        if constexpr (withCheck) {
            auto verdict = check.checkRequest(request.method(), request.requestUri(), "1.1", request.headers(), lines);
            benchmark::DoNotOptimize(verdict);
        }
        benchmark::DoNotOptimize(request);
    }
    finish(state, browserGet.size());
}

// --- registration and ratios --------------------------------------------------------------------

using Benchmark = void (*)(benchmark::State&);

struct Case {
    std::string name;
    std::vector<std::pair<std::string, Benchmark>> contenders; // Zel first
};

const std::vector<Case> cases = {
    {"ParseGet",
     {{"Zel", parseGetZel},
      {"Beast", parseGetBeast},
      {"http-parser", parseGetHttpParser<true>},
      {"http-parser (callbacks only)", parseGetHttpParser<false>}}},
    {"ParsePostJson",
     {{"Zel", parsePostZel},
      {"Beast", parsePostBeast},
      {"http-parser", parsePostHttpParser<true>},
      {"http-parser (callbacks only)", parsePostHttpParser<false>}}},
    {"ParseResponseHead",
     {{"Zel", parseResponseZel},
      {"Beast", parseResponseBeast},
      {"http-parser", parseResponseHttpParser<true>},
      {"http-parser (callbacks only)", parseResponseHttpParser<false>}}},
    {"WriteResponse1K", {{"Zel", writeZel}, {"Beast", writeBeast}}},
    {"ReadHeadFramingChecked", {{"Zel", readHeadZel<true>}, {"without the check", readHeadZel<false>}}},
};

void registerBenchmarks() {
    for (const Case& test : cases) {
        for (const auto& [library, run] : test.contenders) {
            const std::string name = test.name + "/" + library;
            benchmark::RegisterBenchmark(name.c_str(), [run = run](benchmark::State& state) {
                try {
                    run(state);
                } catch (const std::exception& error) {
                    state.SkipWithError(error.what());
                }
            });
        }
    }
}

void printRatios(const Zel::Bench::CapturingReporter& reporter) {
    constexpr double megabyte = 1000.0 * 1000.0;
    std::cout << "\nZel relative to each peer (Zel's rate / the peer's; above 1 means Zel is faster):\n";
    for (const Case& test : cases) {
        const auto* zel = reporter.find(test.name + "/Zel");
        for (std::size_t i = 1; i < test.contenders.size(); ++i) {
            const std::string& peer = test.contenders[i].first;
            const auto* other = reporter.find(test.name + "/" + peer);
            if (!other) continue;
            if (!zel) {
                std::cout << test.name << ": Zel/" << peer
                          << " = n/a (the Zel benchmark failed or did not run)\n";
                continue;
            }
            const double zelMessages = zel->counter("items_per_second");
            const double peerMessages = other->counter("items_per_second");
            char line[256];
            std::snprintf(
                line, sizeof line, "%-18s Zel/%-29s messages/s %s (%.0f vs %.0f)   MB/s %s (%.1f vs %.1f)",
                (test.name + ":").c_str(), peer.c_str(),
                Zel::Bench::formatRatio(zelMessages, peerMessages).c_str(), zelMessages, peerMessages,
                Zel::Bench::formatRatio(zel->bytesPerSecond, other->bytesPerSecond).c_str(),
                zel->bytesPerSecond / megabyte, other->bytesPerSecond / megabyte);
            std::cout << line << '\n';
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    return Zel::Bench::runBenchmarks(argc, argv, "zel-bench-http", registerBenchmarks, printRatios);
}
