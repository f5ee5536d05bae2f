#include "ScriptedServer.h"
#include "TestCertificates.h"

#include <Zel/Net/Http/Client.h>
#include <Zel/Net/Http/HttpException.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace Zel::Net::Http {
namespace {

using namespace std::chrono_literals;
using Testing::Certificates;
using Testing::Peer;
using Testing::ScriptedServer;

void answerOk(Peer& peer) {
    while (peer.readRequest())
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\nsecure");
}

TEST(ClientTls, TrustsTheGivenAuthorityAndRefusesWhatItCannotVerify) {
    const Certificates certificates;
    ASSERT_TRUE(certificates.made());
    const auto right = certificates.serverContext("right");
    const auto wrong = certificates.serverContext("wrong");
    const ClientOptions trusting = ClientOptions().setReadTimeout(10s).setCaFile(certificates.path("ca.pem"));

    ScriptedServer server(answerOk, right.get());
    Client client(trusting);
    for (const std::string host : {"127.0.0.1", "localhost", "127.0.0.1"})
        EXPECT_EQ(client.get(server.url("/", host)).body(), "secure");
    EXPECT_EQ(server.accepted(), 2); // one connection for each host name

    struct Row {
        const char* name;
        SSL_CTX* server;
        ClientOptions options;
    };
    for (const Row& row : {Row{"untrusted authority", right.get(), ClientOptions().setReadTimeout(10s)},
                           Row{"wrong host name", wrong.get(), trusting}}) {
        SCOPED_TRACE(row.name);
        ScriptedServer refused(answerOk, row.server);
        EXPECT_THAT([&] { Client(row.options).get(refused.url()); },
                    ::testing::ThrowsMessage<HttpException>(::testing::AllOf(
                        ::testing::StartsWith("HTTP client: TLS handshake failed | host=127.0.0.1"),
                        ::testing::HasSubstr("certificate verify failed"))));
        EXPECT_EQ(refused.accepted(), 0);
    }
    // Without verification even the wrong certificate is accepted: the option is the caller's to take.
    ScriptedServer unverified(answerOk, wrong.get());
    EXPECT_EQ(Client(ClientOptions().setVerifyPeer(false)).get(unverified.url()).body(), "secure");
}

} // namespace
} // namespace Zel::Net::Http
