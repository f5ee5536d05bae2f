#include "LoopbackClient.h"

#include <Zel/IO/StreamUtils.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Net/Http/FramingCheck.h>
#include <Zel/Net/Http/Headers.h>
#include <Zel/Net/Http/IRequestHandler.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Server.h>
#include <algorithm>
#include <gtest/gtest.h>

using namespace Zel::Net::Http;
using Zel::Net::Http::Testing::LoopbackClient;

namespace {

TEST(FramingCheck, ContentLengthIsOneToEighteenDigits) {
    const struct {
        const char* text;
        std::int64_t expected;
    } cases[] = {
        {"0", 0},
        {"2", 2},
        {" 2 ", 2},
        {"000012", 12},
        {"123456789012345678", 123456789012345678},
        {"1234567890123456789", -1},
        {"", -1},
        {"+2", -1},
        {"-2", -1},
        {"2abc", -1},
        {"0x10", -1},
        {"2, 2", 2},
        {"2,3", -1},
        {"2,", -1},
        {"1 2", -1},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(FramingCheck::parseContentLength(row.text), row.expected);
    }
}

TEST(FramingCheck, ResponsesWithoutBodyIgnoreTheirFramingHeaders) {
    const FramingCheck check;
    Headers headers;
    headers.set("Content-Length", "12");
    FramingCheck::Lines lines;
    for (const int status : {100, 204, 304}) {
        SCOPED_TRACE(status);
        EXPECT_EQ(check.checkResponse("1.1", status, headers, lines, "GET").body, FramingCheck::Body::None);
    }
    EXPECT_EQ(check.checkResponse("1.1", 200, headers, lines, "HEAD").body, FramingCheck::Body::None);
    EXPECT_EQ(check.checkResponse("1.1", 200, headers, lines, "GET").contentLength, 12);
    EXPECT_EQ(check.checkResponse("1.1", 2000000000, headers, lines, "GET").status, 502);
    headers.erase("Content-Length");
    EXPECT_EQ(check.checkResponse("1.1", 200, headers, lines, "GET").body, FramingCheck::Body::UntilClose);
}

// Answers with the method and target it saw, so that a request smuggled into a body would show.
class EchoHandler : public IRequestHandler {
public:
    void handle(Request& request, Response& response) override {
        std::string body = request.method() + " " + request.requestUri();
        if (request.hasBody()) body += " " + std::to_string(Zel::IO::readAll(*request.body()).size());
        response.setBody(std::make_shared<Zel::IO::StringStream>(std::move(body)));
    }
};

class SmugglingTest : public ::testing::Test {
protected:
    void SetUp() override {
        Server::Options options;
        options.maxBodySize = 64;
        // Connections left open go idle soon, so that reading until the server closes is quick.
        options.idleTimeout = std::chrono::milliseconds(1000);
        m_server = std::make_unique<Server>(std::make_shared<EchoHandler>(), options);
        m_server->start();
    }

    std::unique_ptr<Server> m_server;
};

TEST_F(SmugglingTest, EveryAmbiguousFramingIsRefusedAndClosesTheConnection) {
    const std::string hidden = "GET /hidden HTTP/1.1\r\nHost: x\r\n\r\n"; // 0x21 bytes
    const struct {
        const char* rule;
        std::string wire;
        const char* statuses; // every answer, in order; a refusal closes the connection behind it
    } cases[] = {
        {"Transfer-Encoding with Content-Length",
         "POST / HTTP/1.1\r\nContent-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n" + hidden,
         "400"},
        {"two different Content-Length lines",
         "POST / HTTP/1.1\r\nContent-Length: 2\r\nContent-Length: 34\r\n\r\nok" + hidden, "400"},
        {"Content-Length list that disagrees", "POST / HTTP/1.1\r\nContent-Length: 2, 34\r\n\r\nok" + hidden,
         "400"},
        {"Content-Length with trailing letters", "POST / HTTP/1.1\r\nContent-Length: 2abc\r\n\r\nok" + hidden,
         "400"},
        {"Content-Length with a sign", "POST / HTTP/1.1\r\nContent-Length: +2\r\n\r\nok" + hidden, "400"},
        {"negative Content-Length", "POST / HTTP/1.1\r\nContent-Length: -2\r\n\r\nok" + hidden, "400"},
        {"Content-Length of 19 digits",
         "POST / HTTP/1.1\r\nContent-Length: 1000000000000000000\r\n\r\n" + hidden, "400"},
        {"Content-Length over the body limit", "POST / HTTP/1.1\r\nContent-Length: 65\r\n\r\n" + hidden,
         "413"},
        {"transfer coding other than chunked",
         "POST / HTTP/1.1\r\nTransfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n" + hidden, "501"},
        {"chunked twice over two lines",
         "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n" +
             hidden,
         "501"},
        {"chunk size of 17 hex digits",
         "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n10000000000000002\r\nok\r\n0\r\n\r\n" + hidden,
         "400"},
        {"chunks past the body limit",
         "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n20\r\n" + std::string(32, 'a') + "\r\n21\r\n" +
             std::string(33, 'b') + "\r\n0\r\n\r\n" + hidden,
         "413"},
        {"chunk extension",
         "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n2;x=1\r\nok\r\n0\r\n\r\n" + hidden, "400"},
        {"trailer field", "POST / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\nX: y\r\n\r\n" + hidden,
         "400"},
        {"empty method", " / HTTP/1.1\r\n\r\n" + hidden, "400"},
        {"method that is no token", "G(T / HTTP/1.1\r\n\r\n" + hidden, "400"},
        {"empty target", "GET  HTTP/1.1\r\n\r\n" + hidden, "400"},
        {"empty header name", "GET / HTTP/1.1\r\n: x\r\n\r\n" + hidden, "400"},
        {"version HTTP/1", "GET / HTTP/1\r\n\r\n" + hidden, "400"},
        {"version HTTP/1.1.7", "GET / HTTP/1.1.7\r\n\r\n" + hidden, "400"},
        {"another HTTP version", "GET / HTTP/2.0\r\n\r\n" + hidden, "505"},
        // Accepted framings: the body is consumed, whatever the method, and nothing hides in it.
        {"GET with a body",
         "GET / HTTP/1.1\r\nContent-Length: " + std::to_string(hidden.size()) + "\r\n\r\n" + hidden, "200"},
        {"DELETE with a chunked body",
         "DELETE / HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n21\r\n" + hidden + "\r\n0\r\n\r\n", "200"},
        {"repeated equal Content-Length",
         "POST / HTTP/1.1\r\nContent-Length: 2\r\nContent-Length: 2\r\n\r\nok", "200"},
        {"Content-Length after two spaces", "POST / HTTP/1.1\r\nContent-Length:  2\r\n\r\nok", "200"},
        {"pipelined requests",
         "GET /a HTTP/1.1\r\n\r\nPOST /b HTTP/1.1\r\nContent-Length: 1\r\n\r\nxGET /c HTTP/1.1\r\n\r\n",
         "200 200 200"},
        {"answers gathered before a refusal", "GET /a HTTP/1.1\r\n\r\nGET /b HTTP/1\r\n\r\n" + hidden,
         "200 400"},
    };
    for (const auto& row : cases) {
        for (const bool bytewise : {false, true}) {
            SCOPED_TRACE(std::string(row.rule) + (bytewise ? ", one byte a write" : ", one write"));
            LoopbackClient client(m_server->port());
            client.send(row.wire, bytewise);
            client.receiveUntilClosed();
            ASSERT_TRUE(client.closed());
            const auto answers = client.takeResponses();
            std::string statuses;
            for (const auto& answer : answers) {
                statuses += (statuses.empty() ? "" : " ") + std::to_string(answer.status);
                EXPECT_EQ(answer.body.find("/hidden"), std::string::npos) << answer.body;
            }
            EXPECT_EQ(statuses, row.statuses);
            EXPECT_TRUE(client.received().empty()) << client.received();
            if (!answers.empty()) EXPECT_EQ(answers.back().connectionClose, answers.back().status >= 400);
        }
    }

    LoopbackClient client(m_server->port());
    client.send("POST /still HTTP/1.1\r\nContent-Length: 2\r\n\r\nok");
    const auto answer = client.readResponse();
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "POST /still 2");
}

} // namespace
