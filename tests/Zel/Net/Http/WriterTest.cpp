#include "../../IO/TestStreams.h"
#include "SampleMessages.h"

#include <Zel/IO/BufferedStream.h>
#include <Zel/IO/IOException.h>
#include <Zel/IO/MemoryStream.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Net/Http/Method.h>
#include <Zel/Net/Http/Reader.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Utils.h>
#include <Zel/Net/Http/Writer.h>
#include <gtest/gtest.h>
#include <string>

namespace Zel::Net::Http {
namespace {

using IO::Testing::PieceSink;
using IO::Testing::PieceStream;

TEST(Writer, WritesTheStartLineAndOnlyTheHeadersTheMessageHoldsThenTheBody) {
    Request post(Method::POST, "/api/v1/orders");
    post.headers().clear();
    post.headers().set("Host", "api.example.com");
    post.setBodyJson(Samples::orderJson);
    Request old(Method::GET, "/");
    old.headers().clear();
    old.setVersion(Version(1, 0, 7));
    Request lower(Method::GET, "/x");
    lower.headers().clear();
    lower.headers().set("content-length", 0).set("Content-Length", 0);
    Response odd;
    odd.setStatusCode(299, true);
    odd.headers().clear();
    IO::StringStream oddWire;
    Writer().writeResponse(oddWire, odd);
    Response notFound(404);
    notFound.headers().clear();
    notFound.headers().set("Content-Type", "text/plain");
    const struct {
        const char* name;
        std::string wire;
        std::string expected;
    } rows[] = {
        {"request with a body", Utils::dump(post),
         "POST /api/v1/orders HTTP/1.1\r\nHost: api.example.com\r\nContent-Length: " +
             std::to_string(Samples::orderJson.size()) + "\r\nContent-Type: application/json\r\n\r\n" +
             Samples::orderJson},
        {"no headers, the version's third number left out", Utils::dump(old), "GET / HTTP/1.0\r\n\r\n"},
        {"a name in its first spelling", Utils::dump(lower), "GET /x HTTP/1.1\r\ncontent-length: 0\r\n\r\n"},
        {"an empty reason phrase leaves the space", oddWire.str(), "HTTP/1.1 299 \r\n\r\n"},
        {"dump attaches the body", Utils::dump(notFound, "no such page"),
         "HTTP/1.1 404 Not Found\r\nContent-Type: text/plain\r\nContent-Length: 12\r\n\r\nno such page"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.wire, row.expected) << row.name;
    EXPECT_EQ(notFound.headers().contentLength(), 12);
}

TEST(Writer, TheHeadGoesOutInOneWriteAndTheBodyFollows) {
    Response response;
    response.setBody(std::make_shared<IO::StringStream>(std::string(5000, 'x')));
    PieceSink sink(1 << 20);
    Writer().writeResponse(sink, response);
    EXPECT_EQ(sink.writes(), 2u);
    EXPECT_EQ(sink.text(), "HTTP/1.1 200 OK\r\nContent-Length: 5000\r\n\r\n" + std::string(5000, 'x'));

    // A slow connection takes it in pieces; nothing is lost.
    PieceSink slow(7);
    response.setBody(std::make_shared<IO::StringStream>(std::string("hello world")));
    Writer().writeResponse(slow, response);
    EXPECT_EQ(slow.text(), "HTTP/1.1 200 OK\r\nContent-Length: 11\r\n\r\nhello world");
}

TEST(Writer, AnOutputThatTakesNothingFails) {
    char block[4];
    IO::MemoryStream full(static_cast<void*>(block), sizeof block);
    EXPECT_THROW(Writer().writeRequest(full, Request()), IO::IOException);
}

TEST(Writer, WhatIsWrittenReadsBackAsTheSameMessage) {
    for (const std::string& wire : {Samples::curlPost, Samples::chunkedPut, Samples::browserGet}) {
        SCOPED_TRACE(wire.substr(0, wire.find('\r')));
        const auto connection = std::make_shared<IO::BufferedStream>(PieceStream::trickle(wire, 5), 32);
        Request request;
        Reader().readRequest(connection, request);
        const std::string body = request.hasBody() ? IO::readAll(*request.body()) : "";

        // Written again with the decoded body, the request reads back equal.
        Request copy = request;
        copy.headers().erase("Transfer-Encoding");
        if (copy.hasBody() || Method::hasRequestBody(copy.method())) {
            copy.setBody(std::make_shared<IO::StringStream>(body));
        }
        const std::string rewritten = Utils::dump(copy);
        Request again;
        Reader().readRequest(PieceStream::whole(rewritten), again);
        EXPECT_EQ(again.method(), request.method());
        EXPECT_EQ(again.requestUri(), request.requestUri());
        EXPECT_EQ(again.headers(), copy.headers());
        EXPECT_EQ(again.hasBody() ? IO::readAll(*again.body()) : "", body);
    }
}

TEST(Writer, MessagesWriteAndReadThemselves) {
    Response response(201);
    response.headers().set("Location", "/api/items/6");
    response.setBodyJson(R"({"id":6})");
    const auto wire = std::make_shared<IO::StringStream>();
    response.toStream(*wire);
    Response back;
    back.fromStream(wire);
    EXPECT_EQ(back.statusCode(), 201);
    EXPECT_EQ(back.headers().get("Location"), "/api/items/6");
    EXPECT_EQ(static_cast<int>(back.bodyJson()["id"]), 6);
}

} // namespace
} // namespace Zel::Net::Http
