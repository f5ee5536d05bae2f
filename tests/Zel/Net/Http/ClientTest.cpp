#include "../../IO/TestStreams.h"
#include "ScriptedServer.h"

#include <Zel/Json/Json.h>
#include <Zel/Net/Http/Client.h>
#include <Zel/Net/Http/HttpException.h>
#include <Zel/Net/Http/Status.h>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <vector>

namespace Zel::Net::Http {
namespace {

using namespace std::chrono_literals;
using Testing::Peer;
using Testing::ScriptedServer;
using Testing::SeenRequest;

constexpr std::string_view ok = "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok";

// Every bounded wait in these tests is far longer than the work needs, so that a slow machine is
// never mistaken for a fault; a hang still ends.
ClientOptions testOptions() {
    return ClientOptions().setReadTimeout(10s).setConnectTimeout(10s);
}

// The message of what `call` throws, or "" when it returns.
template <class Call>
std::string failure(Call&& call) {
    try {
        call();
    } catch (const HttpException& error) {
        return error.what();
    }
    return {};
}

struct FramingRow {
    const char* name;
    std::string response; // the answer to the first request
    std::string expected; // its body, or the start of the error ("HTTP client: ...")
    bool reused;          // whether the second request went over the same connection
    bool closeAfter = false;
    std::string method = "GET"; // of the first request
};

TEST(Client, FramesEveryResponseByTheRulesAndNeverReusesAConnectionThatBrokeThem) {
    const std::vector<FramingRow> rows = {
        {"interim 100 skipped",
         "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhello", "hello", true},
        {"two interim answers skipped",
         "HTTP/1.1 102 Processing\r\n\r\nHTTP/1.1 103 Early Hints\r\nLink: </a>\r\n\r\n"
         "HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nx",
         "x", true},
        {"204 ignores its Content-Length", "HTTP/1.1 204 No Content\r\nContent-Length: 5\r\n\r\n", "", true},
        {"304 ignores its framing",
         "HTTP/1.1 304 Not Modified\r\nContent-Length: 9\r\nTransfer-Encoding: chunked\r\n\r\n", "", true},
        {"HEAD answer has no body", "HTTP/1.1 200 OK\r\nContent-Length: 1234\r\n\r\n", "", true, false,
         "HEAD"},
        {"chunked with extension and trailer",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
         "5;x=1\r\nhello\r\n6\r\n world\r\n0\r\nX-Checksum: 1\r\n\r\n",
         "hello world", true},
        {"chunk size of 16 digits",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\n\r\n0000000000000002\r\nhi\r\n0\r\n\r\n", "hi",
         true},
        {"repeated equal lengths", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\ncontent-length: 2, 2\r\n\r\nhi",
         "hi", true},
        {"length with spaces around", "HTTP/1.1 200 OK\r\nContent-Length:  2  \r\n\r\nhi", "hi", true},
        {"close-delimited body", "HTTP/1.1 200 OK\r\n\r\nuntil close", "until close", false, true},
        {"Connection: close", "HTTP/1.1 200 OK\r\nConnection: Close\r\nContent-Length: 2\r\n\r\nhi", "hi",
         false},
        {"HTTP/1.0 without keep-alive", "HTTP/1.0 200 OK\r\nContent-Length: 2\r\n\r\nhi", "hi", false},
        {"conflicting lengths", "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nContent-Length: 3\r\n\r\nhi!",
         "HTTP client: conflicting Content-Length values | value=2,3", false},
        {"conflicting length list", "HTTP/1.1 200 OK\r\nContent-Length: 2, 3\r\n\r\nhi!",
         "HTTP client: conflicting Content-Length values", false},
        {"signed length", "HTTP/1.1 200 OK\r\nContent-Length: +2\r\n\r\nhi",
         "HTTP client: invalid Content-Length | value=+2", false},
        {"length with junk", "HTTP/1.1 200 OK\r\nContent-Length: 2abc\r\n\r\nhi",
         "HTTP client: invalid Content-Length", false},
        {"length of 19 digits", "HTTP/1.1 200 OK\r\nContent-Length: 0000000000000000002\r\n\r\nhi",
         "HTTP client: invalid Content-Length", false},
        {"empty length", "HTTP/1.1 200 OK\r\nContent-Length: \r\n\r\nhi",
         "HTTP client: invalid Content-Length", false},
        {"Transfer-Encoding with Content-Length",
         "HTTP/1.1 200 OK\r\nContent-Length: 2\r\nTransfer-Encoding: chunked\r\n\r\n"
         "2\r\nhi\r\n0\r\n\r\n",
         "HTTP client: Transfer-Encoding together with Content-Length", false},
        {"coding before chunked", "HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n",
         "HTTP client: unsupported Transfer-Encoding | value=gzip, chunked", false},
        {"chunked twice",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
         "HTTP client: unsupported Transfer-Encoding", false},
        {"chunked not last", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked, identity\r\n\r\n0\r\n\r\n",
         "HTTP client: unsupported Transfer-Encoding", false},
        {"chunk size of 17 digits",
         "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n10000000000000002\r\nhi\r\n0\r\n\r\n",
         "HTTP client: chunk size too long", false},
        {"status of four digits", "HTTP/1.1 2000 OK\r\nContent-Length: 0\r\n\r\n",
         "HTTP client: invalid status code | status=2000", false},
        {"status below 100", "HTTP/1.1 099 Odd\r\nContent-Length: 0\r\n\r\n",
         "HTTP client: invalid status code", false},
        {"status above 599", "HTTP/1.1 600 Odd\r\nContent-Length: 0\r\n\r\n",
         "HTTP client: invalid status code", false},
        {"switch not asked for", "HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\n\r\n",
         "HTTP client: protocol switch that was not asked for", false},
        {"body cut short", "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nhi",
         "HTTP client: response body cut short | expected=5 | received=2", false, true},
        {"malformed head", "HTTP/1.1 200 OK\r\nBad Header\r\n\r\n", "HTTP client: malformed response head",
         false},
    };
    for (const FramingRow& row : rows) {
        for (const bool trickle : {false, true}) {
            SCOPED_TRACE(std::string(row.name) + (trickle ? ", one byte a write" : ", one write"));
            std::atomic<int> requests{0};
            ScriptedServer server([&](Peer& peer) {
                while (peer.readRequest()) {
                    const bool first = requests++ == 0;
                    peer.send(first ? std::string_view(row.response) : ok, first && trickle);
                    if (first && row.closeAfter) return;
                }
            });
            Client client(testOptions());
            std::string body;
            const std::string error =
                failure([&] { body = client.request(row.method, server.url("/first")).body(); });
            if (row.expected.starts_with("HTTP client: ")) {
                EXPECT_EQ(error.substr(0, row.expected.size()), row.expected);
            } else {
                EXPECT_EQ(error, "");
                EXPECT_EQ(body, row.expected);
            }
            const ClientResponse next = client.get(server.url("/next"));
            EXPECT_EQ(next.body(), "ok");
            EXPECT_EQ(server.accepted(), row.reused ? 1 : 2);
        }
    }
}

TEST(Client, KeepsOneConnectionForManyCallsAndNamesTheHost) {
    std::mutex mutex;
    std::vector<SeenRequest> seen;
    ScriptedServer server([&](Peer& peer) {
        while (auto request = peer.readRequest()) {
            std::lock_guard lock(mutex);
            seen.push_back(*request);
            peer.send(ok);
        }
    });
    Client client(testOptions());
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(client.get(server.url("/n?i=" + std::to_string(i))).body(), "ok");
    EXPECT_EQ(server.accepted(), 1);
    EXPECT_EQ(client.idleConnections(), 1u);
    // A connection idle past the limit is closed, not reused.
    Client forgetful(ClientOptions(testOptions()).setIdleTimeout(0ms));
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(forgetful.get(server.url()).body(), "ok");
    EXPECT_EQ(server.accepted(), 3);
    EXPECT_EQ(forgetful.idleConnections(), 0u);
    std::lock_guard lock(mutex);
    ASSERT_EQ(seen.size(), 22u);
    EXPECT_EQ(seen[7].target, "/n?i=7");
    EXPECT_EQ(seen[7].header("Host"), "127.0.0.1:" + std::to_string(server.port()));
}

TEST(Client, ReplacesAConnectionTheServerClosedWhileIdle) {
    ScriptedServer server([&](Peer& peer) {
        if (peer.readRequest()) peer.send(ok);
    });
    Client client(testOptions());
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(client.get(server.url()).body(), "ok");
    EXPECT_EQ(server.accepted(), 3);
}

TEST(Client, SendsBodiesWithLengthChunkedAndAfterContinue) {
    ScriptedServer server([&](Peer& peer) {
        while (auto request = peer.readHead()) {
            const bool expects = request->header("Expect") == "100-continue";
            if (expects && request->target == "/refuse") {
                peer.send("HTTP/1.1 413 Request Entity Too Large\r\nContent-Length: 0\r\n\r\n");
                continue;
            }
            if (expects) peer.send("HTTP/1.1 100 Continue\r\n\r\n");
            if (!peer.readBody(*request)) return;
            const std::string framing = request->header("Transfer-Encoding").value_or("length");
            const std::string answer = request->method + " " + framing + " " + request->body;
            peer.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(answer.size()) + "\r\n\r\n" +
                      answer);
        }
    });
    Client client(ClientOptions(testOptions()).setExpectContinueThreshold(100).setExpectContinueTimeout(10s));
    EXPECT_EQ(client.post(server.url(), "small", "text/plain").body(), "POST length small");
    EXPECT_EQ(client.postJson(server.url(), Json::parse(R"({"a":[1,"b"]})")).body(),
              R"(POST length {"a":[1,"b"]})");
    EXPECT_EQ(
        client.request("PUT", server.url(), {}, IO::Testing::PieceStream::trickle("streamed", 3)).body(),
        "PUT chunked streamed");
    const std::string large(300, 'x');
    EXPECT_EQ(client.post(server.url(), large, "text/plain").body(), "POST length " + large);
    EXPECT_EQ(server.accepted(), 1);
    EXPECT_EQ(client.post(server.url("/refuse"), large, "text/plain").statusCode(), 413);
    // The refused body was never sent and the server may wait for it: that connection is given up.
    EXPECT_EQ(client.get(server.url()).statusCode(), 200);
    EXPECT_EQ(server.accepted(), 2);
}

TEST(Client, FollowsRedirectsChangingTheMethodAsTheStatusSays) {
    std::mutex mutex;
    std::vector<SeenRequest> seen;
    ScriptedServer server([&](Peer& peer) {
        while (auto request = peer.readRequest()) {
            {
                std::lock_guard lock(mutex);
                seen.push_back(*request);
            }
            const std::string& target = request->target;
            if (target == "/done") {
                const std::string answer = request->method + ":" + request->body;
                peer.send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(answer.size()) + "\r\n\r\n" +
                          answer);
            } else if (target == "/loop") {
                peer.send("HTTP/1.1 302 Found\r\nLocation: /loop\r\nContent-Length: 0\r\n\r\n");
            } else {
                // "/303" and the like answer with that status, pointing (relatively) at /done.
                peer.send("HTTP/1.1 " + target.substr(1) +
                          " Moved\r\nLocation: done\r\nContent-Length: 4\r\n\r\nmove");
            }
        }
    });
    Client client(ClientOptions(testOptions()).setMaxRedirects(3));
    struct Row {
        std::string status;
        std::string answer;
    };
    for (const Row& row : {Row{"301", "GET:"}, Row{"302", "GET:"}, Row{"303", "GET:"},
                           Row{"307", "POST:note"}, Row{"308", "POST:note"}}) {
        SCOPED_TRACE(row.status);
        const ClientResponse response = client.post(server.url("/" + row.status), "note", "text/plain");
        EXPECT_EQ(response.body(), row.answer);
        EXPECT_EQ(response.url(), server.url("/done"));
    }
    EXPECT_EQ(failure([&] { client.get(server.url("/loop")); }),
              "HTTP client: too many redirects | url=" + server.url("/loop") + " | limit=3");
    EXPECT_EQ(Client(ClientOptions(testOptions()).setMaxRedirects(0)).get(server.url("/302")).statusCode(),
              302);
    std::lock_guard lock(mutex);
    EXPECT_EQ(seen.size(), 5u * 2 + 4 + 1);
    EXPECT_FALSE(seen[1].header("Content-Type")); // the body went with the method
}

TEST(Client, SendsAuthorizationOnlyToTheHostFirstAsked) {
    std::mutex mutex;
    std::vector<SeenRequest> seen;
    auto record = [&](Peer& peer, const std::string& answer) {
        while (auto request = peer.readRequest()) {
            std::lock_guard lock(mutex);
            seen.push_back(*request);
            peer.send(answer);
        }
    };
    ScriptedServer other([&](Peer& peer) { record(peer, std::string(ok)); });
    ScriptedServer first([&](Peer& peer) {
        record(peer, "HTTP/1.1 307 Temporary Redirect\r\nLocation: " + other.url("/x") +
                         "\r\nContent-Length: 0\r\n\r\n");
    });
    for (const bool bearer : {false, true}) {
        SCOPED_TRACE(bearer ? "bearer token" : "caller's header");
        Client client(testOptions());
        Headers headers;
        if (bearer) {
            client.setBearerToken("secret");
        } else {
            headers.set("Authorization", "Bearer secret");
        }
        EXPECT_EQ(client.get(first.url(), headers).body(), "ok");
    }
    std::lock_guard lock(mutex);
    ASSERT_EQ(seen.size(), 4u);
    for (const std::size_t i : {0u, 2u})
        EXPECT_EQ(seen[i].header("Authorization"), "Bearer secret");
    for (const std::size_t i : {1u, 3u})
        EXPECT_FALSE(seen[i].header("Authorization"));
}

// A listener that never accepts, its queue filled: the kernel drops further connection requests,
// so that a connect hangs.
class FullListener {
public:
    FullListener() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        ::bind(m_listener, reinterpret_cast<sockaddr*>(&address), size);
        ::listen(m_listener, 0);
        ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size);
        m_port = ntohs(address.sin_port);
        for (int& filler : m_fillers) {
            filler = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            ::connect(filler, reinterpret_cast<sockaddr*>(&address), size);
        }
    }
    ~FullListener() {
        for (const int filler : m_fillers)
            ::close(filler);
        ::close(m_listener);
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(m_port) + "/"; }

private:
    int m_listener = ::socket(AF_INET, SOCK_STREAM, 0);
    int m_port = 0;
    int m_fillers[4] = {};
};

TEST(Client, GivesUpOnAServerThatNeverAnswers) {
    ScriptedServer silent([&](Peer& peer) { peer.waitForClose(); });
    const FullListener full;
    struct Row {
        ClientOptions options;
        std::string url;
        std::string error;
    };
    const std::vector<Row> rows = {
        {ClientOptions().setReadTimeout(200ms), silent.url(), "HTTP client: read timed out | host=127.0.0.1"},
        {ClientOptions().setTotalTimeout(200ms), silent.url(),
         "HTTP client: request timed out | host=127.0.0.1"},
        {ClientOptions().setConnectTimeout(200ms), full.url(),
         "HTTP client: connect timed out | host=127.0.0.1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.error);
        Client client(row.options);
        EXPECT_EQ(failure([&] { client.get(row.url); }).substr(0, row.error.size()), row.error);
        EXPECT_EQ(client.idleConnections(), 0u);
    }
}

} // namespace
} // namespace Zel::Net::Http
