#include <Zel/Net/Http/Writer.h>

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

#include <gtest/gtest.h>

#include <string>

namespace Zel::Net::Http {
namespace {

using IO::Testing::PieceSink;
using IO::Testing::PieceStream;

TEST(Writer, WritesTheRequestHeadThenTheBody) {
    Request request(Method::POST, "/api/v1/orders");
    request.headers().clear();
    request.headers().set("Host", "api.example.com");
    request.setBodyJson(Samples::orderJson);
    const std::string wire = Utils::dump(request);
    const std::string head = wire.substr(0, wire.find("\r\n") + 2);
    EXPECT_EQ(head, "POST /api/v1/orders HTTP/1.1\r\n");
    const std::string expected = head + request.headers().toString() + "\r\n" + Samples::orderJson;
    EXPECT_EQ(wire, expected);
    EXPECT_NE(wire.find("Content-Length: " + std::to_string(Samples::orderJson.size()) + "\r\n"),
              std::string::npos);
    EXPECT_NE(wire.find("Content-Type: application/json\r\n"), std::string::npos);
}

TEST(Writer, WritesOnlyTheHeadersTheMessageHolds) {
    Request request(Method::GET, "/");
    request.headers().clear();
    request.setVersion(Version(1, 0, 7));
    EXPECT_EQ(Utils::dump(request), "GET / HTTP/1.0\r\n\r\n");

    Request lower(Method::GET, "/x");
    lower.headers().clear();
    lower.headers().set("content-length", 0);
    lower.headers().set("Content-Length", 0);
    EXPECT_EQ(Utils::dump(lower), "GET /x HTTP/1.1\r\ncontent-length: 0\r\n\r\n");
}

TEST(Writer, AnEmptyReasonPhraseLeavesTheSpace) {
    Response response;
    response.setStatusCode(299, true);
    response.headers().clear();
    IO::StringStream wire;
    Writer().writeResponse(wire, response);
    EXPECT_EQ(wire.str(), "HTTP/1.1 299 \r\n\r\n");
}

TEST(Writer, DumpOfAResponseAttachesTheBody) {
    Response response(404);
    response.headers().clear();
    response.headers().set("Content-Type", "text/plain");
    const std::string wire = Utils::dump(response, "no such page");
    EXPECT_EQ(response.headers().contentLength(), 12);
    const std::string headers = response.headers().toString();
    EXPECT_EQ(wire, "HTTP/1.1 404 Not Found\r\n" + headers + "\r\nno such page");
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
