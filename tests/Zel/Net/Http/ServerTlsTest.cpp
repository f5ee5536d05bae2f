#include "LoopbackClient.h"
#include "TestCertificates.h"

#include <Zel/ArgumentException.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Net/Http/Client.h>
#include <Zel/Net/Http/HttpException.h>
#include <Zel/Net/Http/IRequestHandler.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Server.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Zel::Net::Http {
namespace {

using namespace std::chrono_literals;
using Testing::Certificates;
using Testing::LoopbackClient;

// Answers with the request target.
class TargetHandler : public IRequestHandler {
public:
    void handle(Request& request, Response& response) override {
        response.setBody(std::make_shared<IO::StringStream>(request.requestUri()));
    }
};

Server::Options httpsOptions(const TlsContext& tls) {
    Server::Options options;
    options.tls = tls;
    options.handshakeTimeout = 300ms;
    return options;
}

std::string url(const Server& server, const std::string& scheme, const std::string& path) {
    return scheme + "://127.0.0.1:" + std::to_string(server.port()) + path;
}

TEST(HttpServerTls, ServesHttpsOnKeptConnectionsAndDropsPeersThatDoNotShakeHands) {
    const Certificates certificates;
    ASSERT_TRUE(certificates.made());
    Server server(
        std::make_shared<TargetHandler>(),
        httpsOptions(TlsContext::server(certificates.path("right.pem"), certificates.path("right.key"))));
    server.start();
    const ClientOptions trusting = ClientOptions().setReadTimeout(10s).setCaFile(certificates.path("ca.pem"));

    Client client(trusting);
    EXPECT_EQ(client.get(url(server, "https", "/one")).body(), "/one");
    EXPECT_EQ(client.get(url(server, "https", "/two")).body(), "/two");
    EXPECT_EQ(client.idleConnections(), 1u);
    EXPECT_EQ(server.connectionCount(), 1u) << "both requests on one connection";

    EXPECT_THROW(Client(ClientOptions().setReadTimeout(10s)).get(url(server, "http", "/plain")),
                 HttpException);

    // The idle timeout (a minute) is longer than the wait: only the handshake's deadline ends these.
    const struct {
        const char* name;
        std::string bytes;
    } peers[] = {
        {"silent", ""},
        {"plain HTTP", "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"},
        {"the first bytes of a handshake", std::string("\x16\x03\x01\x02\x00\x01", 6)},
    };
    for (const auto& peer : peers) {
        SCOPED_TRACE(peer.name);
        LoopbackClient raw(server.port());
        raw.send(peer.bytes);
        raw.receiveUntilClosed();
        EXPECT_TRUE(raw.closed());
        EXPECT_EQ(raw.received().find("HTTP/1.1"), std::string::npos);
    }
    EXPECT_EQ(Client(trusting).get(url(server, "https", "/still")).body(), "/still");
}

TEST(HttpServerTls, ANewConnectionGetsTheReloadedCertificate) {
    namespace fs = std::filesystem;
    const Certificates certificates;
    ASSERT_TRUE(certificates.made());
    const auto install = [&](const std::string& name) {
        for (const char* kind : {".pem", ".key"})
            fs::copy_file(certificates.path(name + kind), certificates.path(std::string("live") + kind),
                          fs::copy_options::overwrite_existing);
    };
    install("wrong");
    TlsContext tls = TlsContext::server(certificates.path("live.pem"), certificates.path("live.key"));
    Server server(std::make_shared<TargetHandler>(), httpsOptions(tls));
    server.start();
    const ClientOptions trusting = ClientOptions().setReadTimeout(10s).setCaFile(certificates.path("ca.pem"));
    EXPECT_THAT([&] { Client(trusting).get(url(server, "https", "/")); },
                ::testing::ThrowsMessage<HttpException>(::testing::HasSubstr("certificate verify failed")));

    install("right");
    tls.reload();
    EXPECT_EQ(Client(trusting).get(url(server, "https", "/renewed")).body(), "/renewed");

    Server::Options clientSide;
    clientSide.tls = TlsContext::client();
    EXPECT_THROW(Server(std::make_shared<TargetHandler>(), clientSide).start(), ArgumentException);
}

} // namespace
} // namespace Zel::Net::Http
