#include "../../IO/TestStreams.h"
#include "SampleMessages.h"

#include <Zel/ArgumentException.h>
#include <Zel/GenericException.h>
#include <Zel/IO/BufferedStream.h>
#include <Zel/IO/NullStream.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Json/ParserException.h>
#include <Zel/Net/Http/ChunkedTransferBodyStream.h>
#include <Zel/Net/Http/ContentLengthBodyStream.h>
#include <Zel/Net/Http/HttpException.h>
#include <Zel/Net/Http/Reader.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Parser/UnexpectedCharException.h>
#include <Zel/Parser/UnexpectedEofException.h>
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace Zel::Net::Http {
namespace {

using IO::Testing::PieceStream;
using ::testing::ElementsAre;
using ::testing::Pair;

using HeaderList = std::vector<std::pair<std::string, std::string>>;

HeaderList sorted(const Headers& headers) {
    HeaderList list(headers.begin(), headers.end());
    std::sort(list.begin(), list.end());
    return list;
}

// Everything a read produced, for comparing reads of the same bytes delivered differently.
struct Parsed {
    std::string startLine;
    HeaderList headers;
    bool hasBody = false;
    std::string body;
    std::string rest; // what the connection still held after the body
    bool operator==(const Parsed&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Parsed& parsed) {
    out << parsed.startLine << " | " << parsed.headers.size() << " headers | body " << parsed.body.size()
        << " bytes | rest " << parsed.rest.size() << " bytes";
    return out;
}

std::string startLine(const Request& request) {
    return request.method() + " " + request.requestUri() + " " + request.version().toString();
}
std::string startLine(const Response& response) {
    return response.version().toString() + " " + std::to_string(response.statusCode()) + " " +
           response.reasonPhrase();
}

void readMessage(const std::shared_ptr<IO::IStream>& stream, Request& request, const Reader& reader = {}) {
    reader.readRequest(stream, request);
}
void readMessage(const std::shared_ptr<IO::IStream>& stream, Response& response, const Reader& reader = {}) {
    reader.readResponse(stream, response);
}

std::size_t headLength(const std::string& wire) {
    return wire.find("\r\n\r\n") + 4;
}

// Reads one message from `pieces` (through a buffer of `bufferSize` bytes, or directly when 0),
// then its body in reads of `bodyPiece` bytes, then what is left.
template <class Message>
Parsed readThrough(const std::string& wire, const std::shared_ptr<PieceStream>& pieces,
                   std::size_t bufferSize, std::size_t bodyPiece) {
    std::shared_ptr<IO::IStream> stream = pieces;
    std::shared_ptr<IO::BufferedStream> buffered;
    if (bufferSize != 0) stream = buffered = std::make_shared<IO::BufferedStream>(pieces, bufferSize);

    Message message;
    readMessage(stream, message);
    // Not a byte of the body is taken before the body stream is asked for it.
    EXPECT_EQ(buffered ? static_cast<std::size_t>(buffered->position()) : pieces->position(),
              headLength(wire));

    Parsed parsed{startLine(message), sorted(message.headers()), message.hasBody(), "", ""};
    std::string piece(bodyPiece, '\0');
    while (const std::size_t count = message.body()->read(piece.data(), bodyPiece))
        parsed.body.append(piece.data(), count);
    parsed.rest = IO::readAll(*stream);
    return parsed;
}

struct Sample {
    std::string name;
    std::string wire;
    bool isRequest;
};

const std::vector<Sample> samples = {
    {"browser GET", Samples::browserGet + Samples::websocketUpgrade, true},
    {"curl POST", Samples::curlPost + Samples::browserGet, true},
    {"chunked PUT", Samples::chunkedPut + Samples::curlPost, true},
    {"websocket upgrade", Samples::websocketUpgrade, true},
    {"nginx response", Samples::nginxResponse + Samples::notModified, false},
    {"chunked response", Samples::chunkedResponse + Samples::nginxResponse, false},
    {"HTTP/1.0 close-delimited", Samples::closeDelimitedResponse, false},
    {"304", Samples::notModified, false},
};

Parsed readSample(const Sample& sample, const std::shared_ptr<PieceStream>& pieces, std::size_t bufferSize,
                  std::size_t bodyPiece) {
    return sample.isRequest ? readThrough<Request>(sample.wire, pieces, bufferSize, bodyPiece)
                            : readThrough<Response>(sample.wire, pieces, bufferSize, bodyPiece);
}

TEST(Reader, ReadsRealMessages) {
    Request get;
    Reader().readRequest(PieceStream::whole(Samples::browserGet), get);
    EXPECT_EQ(get.method(), "GET");
    EXPECT_EQ(get.requestUri(), "/docs/index.html?lang=en");
    EXPECT_EQ(get.url().path(), "/docs/index.html");
    EXPECT_EQ(get.url().queryParameter("lang"), "en");
    EXPECT_EQ(get.version(), Version(1, 1));
    EXPECT_EQ(get.headers().size(), 11u);
    EXPECT_EQ(get.headers().get("user-agent"),
              "Mozilla/5.0 (Windows NT 10.0; Win64; x64; rv:121.0) Gecko/20100101 Firefox/121.0");
    EXPECT_EQ(get.headers().get("If-Modified-Since"), "Tue, 09 Jan 2024 10:15:00 GMT");
    EXPECT_FALSE(get.headers().isSet("Content-Length"));
    EXPECT_FALSE(get.hasBody());
    EXPECT_TRUE(get.keepAlive());

    // The POST's method and exact body are checked by PipelinedRequestsComeOneAfterTheOther.
    Request post;
    Reader().readRequest(PieceStream::whole(Samples::curlPost), post);
    ASSERT_TRUE(post.hasBody());
    EXPECT_NE(dynamic_cast<ContentLengthBodyStream*>(post.body().get()), nullptr);
    EXPECT_EQ(post.headers().contentLength(), static_cast<std::int64_t>(Samples::orderJson.size()));

    Response response;
    Reader().readResponse(PieceStream::whole(Samples::chunkedResponse), response);
    EXPECT_EQ(response.statusCode(), 200);
    EXPECT_EQ(response.reasonPhrase(), "OK");
    EXPECT_NE(dynamic_cast<ChunkedTransferBodyStream*>(response.body().get()), nullptr);
    EXPECT_EQ(IO::readAll(*response.body()), Samples::apiJson);
}

TEST(Reader, EverySplitOfTheInputGivesTheSameMessage) {
    for (const Sample& sample : samples) {
        SCOPED_TRACE(sample.name);
        const Parsed expected = readSample(sample, PieceStream::whole(sample.wire), 0, 4096);
        ASSERT_FALSE(expected.headers.empty());
        for (std::size_t size = 1; size <= sample.wire.size(); ++size) {
            for (const std::size_t bufferSize : {0u, 16u, 4096u}) {
                SCOPED_TRACE("buffer " + std::to_string(bufferSize) + ", size " + std::to_string(size));
                const std::size_t bodyPiece = size % 13 + 1;
                ASSERT_EQ(readSample(sample, PieceStream::trickle(sample.wire, size), bufferSize, bodyPiece),
                          expected);
                ASSERT_EQ(readSample(sample, PieceStream::split(sample.wire, size), bufferSize, bodyPiece),
                          expected);
            }
        }
    }
}

TEST(Reader, PipelinedRequestsComeOneAfterTheOther) {
    const std::string wire = Samples::curlPost + Samples::chunkedPut + Samples::browserGet;
    const auto connection = std::make_shared<IO::BufferedStream>(PieceStream::trickle(wire, 100), 64);
    const Reader reader;
    Request request;
    std::vector<std::string> seen;
    for (int i = 0; i < 3; ++i) {
        reader.readRequest(connection, request);
        seen.push_back(request.method() + " " + request.requestUri() + " " + IO::readAll(*request.body()));
    }
    EXPECT_THAT(seen,
                ElementsAre("POST /api/v1/orders " + Samples::orderJson,
                            "PUT /upload/report.csv " + Samples::csvUpload, "GET /docs/index.html?lang=en "));
    EXPECT_EQ(connection->readByte(), -1);
}

struct BadHead {
    std::string wire;
    std::string message; // exact text, whose start names the exception
};

// Reads `row.wire` as a Message, through a buffer and without, expecting the row's failure.
template <class Message>
void expectFailure(const BadHead& row, const Reader& reader = {}) {
    for (const bool buffered : {false, true}) {
        SCOPED_TRACE(row.wire + (buffered ? " (buffered)" : " (plain)"));
        std::shared_ptr<IO::IStream> stream = PieceStream::trickle(row.wire, 3);
        if (buffered) stream = std::make_shared<IO::BufferedStream>(stream, 16);
        std::string kind, text;
        try {
            Message message;
            readMessage(stream, message, reader);
            ADD_FAILURE() << "no exception";
        } catch (const Parser::UnexpectedCharException& e) {
            kind = "Unexpected character |", text = e.what();
        } catch (const Parser::UnexpectedEofException& e) {
            kind = "Unexpected end of data |", text = e.what();
        } catch (const ArgumentException& e) {
            kind = "Version: invalid text |", text = e.what();
        }
        EXPECT_EQ(text, row.message);
        EXPECT_TRUE(text.starts_with(kind)) << kind;
    }
}

TEST(Reader, MalformedRequestHeadsFailAtTheOffendingByte) {
    const std::vector<BadHead> rows = {
        {"GET /index.html HTTP/1.1\r\nHost:example\r\n\r\n",
         "Unexpected character | char=0x65 | position=31"},
        {"GET / HTTP/1.1\r\nX_Custom: 1\r\n\r\n", "Unexpected character | char=0x5f | position=17"},
        {"GET / HTTP/1.1\r\nAccept: a\tb\r\n\r\n", "Unexpected character | char=0x9 | position=25"},
        {"GET / HTTP/1.1\r\nUser-Agent: caf\xE9\r\n\r\n", "Unexpected character | char=0xe9 | position=31"},
        {"GET / HTTP/1.1\r\nX-Long: a\r\n b\r\n\r\n", "Unexpected character | char=0x20 | position=27"},
        {"GET / HTTP/1.1\r\nHost\r\n\r\n", "Unexpected character | char=0xd | position=20"},
        {"GET / HTTP/1.1\r\n\rX", "Unexpected character | char=0x58 | position=17"},
        {"GET / HTTP/1.1\r\nHost: a\rb\r\n\r\n", "Unexpected character | char=0x62 | position=24"},
        {"G3T / HTTP/1.1\r\n\r\n", "Unexpected character | char=0x33 | position=1"},
        {"GET /a\x01z HTTP/1.1\r\n\r\n", "Unexpected character | char=0x1 | position=6"},
        {"GET /caf\xC3\xA9 HTTP/1.1\r\n\r\n", "Unexpected character | char=0xc3 | position=8"},
        {"GET / HTTX/1.1\r\n\r\n", "Unexpected character | char=0x58 | position=9"},
        {"GET / http/1.1\r\n\r\n", "Unexpected character | char=0x68 | position=6"},
        {"GET  / HTTP/1.1\r\n\r\n", "Unexpected character | char=0x2f | position=5"},
        {"GET / HTTP/1.1x\r\n\r\n", "Unexpected character | char=0x78 | position=14"},
        {"GET / HTTP/1.1\n\n", "Unexpected character | char=0xa | position=14"},
        {"GET / HTTP/1.1\rX", "Unexpected character | char=0x58 | position=15"},
        {"", "Unexpected end of data | size=0"},
        {"GET / HT", "Unexpected end of data | size=8"},
        {"GET / HTTP/", "Unexpected end of data | size=11"},
        {"GET / HTTP/1.1\r\nHost: a", "Unexpected end of data | size=23"},
        {"GET / HTTP/1.1\r\nHost: a\r\n", "Unexpected end of data | size=25"},
        {"GET / HTTP/1.1\r\n\r", "Unexpected end of data | size=17"},
        {"GET / HTTP/1..1\r\n\r\n", "Version: invalid text | text=1..1"},
        {"GET / HTTP/\r\n\r\n", "Version: invalid text | text="},
    };
    for (const BadHead& row : rows)
        expectFailure<Request>(row);
}

TEST(Reader, MalformedStatusLinesFailAtTheOffendingByte) {
    const std::vector<BadHead> rows = {
        {"ICY 200 OK\r\n\r\n", "Unexpected character | char=0x49 | position=0"},
        {"HTTP/1.1 2x0 OK\r\n\r\n", "Unexpected character | char=0x78 | position=10"},
        {"HTTP/1.1 200 O\x7FK\r\n\r\n", "Unexpected character | char=0x7f | position=14"},
        {"HTTP/1.1 200 OK\tfine\r\n\r\n", "Unexpected character | char=0x9 | position=15"},
        {"HTTP/1.1\r\n\r\n", "Unexpected character | char=0xd | position=8"},
        {"HTTP/1.1 99999999999 Big\r\n\r\n", "Unexpected character | char=0x39 | position=18"},
        {"HTTP/1.1 200 OK\r\nServer : x\r\n\r\n", "Unexpected character | char=0x20 | position=23"},
        {"HTTP/1.1 200", "Unexpected end of data | size=12"},
        {"HTTP/1.1.1.1.1 200 OK\r\n\r\n", "Version: invalid text | text=1.1.1.1.1"},
    };
    for (const BadHead& row : rows)
        expectFailure<Response>(row);
}

TEST(Reader, HeaderLinesFollowTheLetterOfTheGrammar) {
    Request request;
    Reader().readRequest(PieceStream::whole("get /x HTTP/1.0\r\n"
                                            "Host:  two spaces\r\n"
                                            "X-Trailing: kept   \r\n"
                                            "X-Empty: \r\n"
                                            "X-Repeat: first\r\n"
                                            "x-repeat: second\r\n"
                                            "\r\n"),
                         request);
    EXPECT_EQ(request.method(), "get");
    EXPECT_EQ(request.version(), Version(1, 0));
    EXPECT_THAT(sorted(request.headers()),
                ElementsAre(Pair("Host", " two spaces"), Pair("X-Empty", ""), Pair("X-Repeat", "second"),
                            Pair("X-Trailing", "kept   ")));

    Reader().readRequest(PieceStream::whole(" * HTTP/1.1\r\n\r\n"), request);
    EXPECT_EQ(request.method(), "");
    EXPECT_EQ(request.requestUri(), "*");
    EXPECT_TRUE(request.headers().empty());
}

TEST(Reader, StatusLinesKeepTheirOwnReasonPhrase) {
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"HTTP/1.1 200 \r\n\r\n", "200||1.1"},
        {"HTTP/1.1 299 Whatever\r\n\r\n", "299|Whatever|1.1"},
        {"HTTP/1.1 404 Nicht gefunden\r\n\r\n", "404|Nicht gefunden|1.1"},
        {"HTTP/1.0 200 OK\r\n\r\n", "200|OK|1.0"},
        {"HTTP/2.0 503 Service Unavailable\r\n\r\n", "503|Service Unavailable|2.0"},
    };
    for (const auto& [wire, expected] : rows) {
        SCOPED_TRACE(wire);
        Response response;
        Reader().readResponse(PieceStream::whole(wire), response);
        EXPECT_EQ(std::to_string(response.statusCode()) + "|" + response.reasonPhrase() + "|" +
                      response.version().toString(),
                  expected);
    }
}

TEST(Reader, SkippedHeadersAreParsedButNotStored) {
    Reader reader;
    reader.skipHeader("Cookie").skipHeader("Authorization");
    EXPECT_THAT(reader.skippedHeaders(), ElementsAre("Authorization", "Cookie"));
    Request request;
    reader.readRequest(PieceStream::whole("GET / HTTP/1.1\r\n"
                                          "Cookie: raw \t\xFF bytes pass unread\r\n"
                                          "cookie: other spelling is kept\r\n"
                                          "Authorization: Basic dXNlcjpwYXNz\r\n"
                                          "Host: example.com\r\n"
                                          "\r\n"),
                       request);
    EXPECT_THAT(sorted(request.headers()),
                ElementsAre(Pair("Host", "example.com"), Pair("cookie", "other spelling is kept")));

    // The skipped line still needs its CR LF.
    expectFailure<Request>(
        {"GET / HTTP/1.1\r\nCookie: a\rb\r\n\r\n", "Unexpected character | char=0x62 | position=26"}, reader);
}

TEST(Reader, ReadHeadersParsesOneBlockAndAddsToTheHeaders) {
    Headers headers;
    headers.set("Existing", "1");
    const auto stream = PieceStream::whole("Expires: 0\r\nETag: \"x\"\r\n\r\nnext");
    Reader().readHeaders(*stream, headers);
    EXPECT_THAT(sorted(headers),
                ElementsAre(Pair("ETag", "\"x\""), Pair("Existing", "1"), Pair("Expires", "0")));
    EXPECT_EQ(stream->rest(), "next");
}

TEST(Reader, TheBodyStreamFollowsTheFramingHeaders) {
    struct Row {
        std::string name;
        std::string head;
        std::string body;    // what the body stream gives
        std::string message; // HttpException text, empty when it reads
    };
    const std::string tail = "5\r\nhello\r\n0\r\n\r\n";
    const std::vector<Row> rows = {
        {"chunked wins over the length", "Transfer-Encoding: chunked\r\nContent-Length: 3\r\n", "hello", ""},
        {"capital Chunked", "Transfer-Encoding: Chunked\r\n", "", "406 Not Acceptable"},
        {"a list of codings", "Transfer-Encoding: gzip, chunked\r\n", "", "406 Not Acceptable"},
        {"a parameter", "Transfer-Encoding: chunked;q=1\r\n", "", "406 Not Acceptable"},
        {"compressed", "Content-Encoding: gzip\r\nContent-Length: 5\r\n", "", "406 Not Acceptable"},
        {"identity is compressed too", "Content-Encoding: identity\r\nContent-Length: 5\r\n", "",
         "406 Not Acceptable"},
        {"empty codings count as absent",
         "Transfer-Encoding: \r\nContent-Encoding: \r\nContent-Length: 3\r\n", "5\r\n", ""},
        {"length", "Content-Length: 8\r\n", "5\r\nhello", ""},
        {"no length", "", "", "411 Length Required"},
    };
    for (const std::string method : {"POST", "PUT", "PATCH"}) {
        for (const Row& row : rows) {
            SCOPED_TRACE(method + ": " + row.name);
            Request request;
            const auto stream =
                PieceStream::whole(method + " /items HTTP/1.1\r\n" + row.head + "\r\n" + tail);
            try {
                Reader().readRequest(stream, request);
                EXPECT_EQ(row.message, "");
                EXPECT_EQ(IO::readAll(*request.body()), row.body);
            } catch (const HttpException& e) {
                EXPECT_EQ(std::string(e.what()), row.message);
            }
        }
    }
}

TEST(Reader, RequestsWithoutABodyMethodGetNoBodyStream) {
    for (const std::string method : {"GET", "DELETE", "HEAD", "OPTIONS", "post"}) {
        SCOPED_TRACE(method);
        const auto stream =
            PieceStream::whole(method + " / HTTP/1.1\r\nContent-Length: 10\r\n\r\n0123456789");
        Request request;
        Reader().readRequest(stream, request);
        EXPECT_FALSE(request.hasBody());
        EXPECT_NE(dynamic_cast<IO::NullStream*>(request.body().get()), nullptr);
        EXPECT_EQ(request.headers().contentLength(), 10);
        EXPECT_EQ(stream->rest(), "0123456789");
    }
}

TEST(Reader, AResponseWithoutLengthReadsUntilThePeerCloses) {
    const auto stream = PieceStream::trickle(Samples::closeDelimitedResponse, 10);
    Response response;
    Reader().readResponse(stream, response);
    EXPECT_EQ(response.body(), stream);
    EXPECT_FALSE(response.headers().isSet("Content-Length"));
    EXPECT_FALSE(response.keepAlive());
    EXPECT_EQ(IO::readAll(*response.body()), "<html><body><h1>Error 404</h1></body></html>\n");
}

TEST(Reader, ALengthIsWrittenBackAsTheNumberItMeans) {
    Request request;
    Reader().readRequest(PieceStream::whole("POST / HTTP/1.1\r\ncontent-length: +004\r\n\r\nbody"), request);
    EXPECT_EQ(request.headers().get("Content-Length"), "4");
    EXPECT_EQ(request.headers().begin()->first, "content-length");
    EXPECT_EQ(IO::readAll(*request.body()), "body");
}

TEST(Reader, AReusedMessageHoldsOnlyWhatWasRead) {
    Request request("POST", "/old");
    request.setBodyJson(R"({"old":true})");
    request.headers().set("X-Old", "1");
    (void)request.url();
    Reader().readRequest(PieceStream::whole("GET /new?page=2 HTTP/1.1\r\nHost: a\r\n\r\n"), request);
    EXPECT_THAT(sorted(request.headers()), ElementsAre(Pair("Host", "a")));
    EXPECT_FALSE(request.hasBody());
    EXPECT_EQ(request.url().path(), "/new");
    EXPECT_EQ(request.url().queryParameter("page"), "2");
}

TEST(Reader, BodyJsonConsumesTheBodyWhetherItParsesOrNot) {
    const std::string bad = "POST /a HTTP/1.1\r\nContent-Length: 9\r\n\r\n{\"a\":tru";
    const std::string wire = Samples::curlPost + bad + Samples::browserGet;
    for (const std::size_t bufferSize : {0u, 16u, 64u, 4096u}) {
        SCOPED_TRACE(bufferSize);
        std::shared_ptr<IO::IStream> connection = PieceStream::trickle(wire, 50);
        if (bufferSize != 0) connection = std::make_shared<IO::BufferedStream>(connection, bufferSize);
        Request request;
        Reader().readRequest(connection, request);
        EXPECT_EQ(static_cast<std::string>(request.bodyJson()["note"]), "leave at door");
        EXPECT_THROW(request.bodyJson(), Json::ParserException); // read once: nothing left
        Reader().readRequest(connection, request);
        EXPECT_THROW(request.bodyJson(), GenericException);
        Reader().readRequest(connection, request);
        EXPECT_EQ(request.requestUri(), "/docs/index.html?lang=en");
    }
}

TEST(Reader, OneReaderServesManyThreadsAtOnce) {
    Reader reader;
    reader.skipHeader("Cookie");
    std::string wire;
    for (int i = 0; i < 200; ++i)
        wire += Samples::curlPost + Samples::browserGet;
    std::vector<std::string> results(4);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < results.size(); ++t) {
        threads.emplace_back([&, t] {
            const auto connection =
                std::make_shared<IO::BufferedStream>(PieceStream::trickle(wire, 97 + t), 256);
            Request request;
            for (int i = 0; i < 400; ++i) {
                reader.readRequest(connection, request);
                const std::string body = request.hasBody() ? IO::readAll(*request.body()) : "";
                if (request.headers().isSet("Cookie") || (i % 2 == 0) != (body == Samples::orderJson)) {
                    results[t] = "wrong message " + std::to_string(i);
                    return;
                }
            }
            results[t] = connection->readByte() == -1 ? "ok" : "bytes left over";
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_THAT(results, ::testing::Each("ok"));
}

TEST(Reader, ANullStreamIsRefused) {
    Request request;
    EXPECT_THROW(Reader().readRequest(nullptr, request), ArgumentException);
}

} // namespace
} // namespace Zel::Net::Http
