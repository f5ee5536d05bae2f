#include "Http/TestCertificates.h"

#include <Zel/IO/IOException.h>
#include <Zel/Net/ServerSocket.h>
#include <Zel/Net/StreamSocket.h>
#include <Zel/Net/TlsContext.h>
#include <Zel/Net/TlsStream.h>
#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

using namespace Zel::Net;
using namespace std::chrono_literals;
using Zel::Net::Http::Testing::Certificates;

namespace {

std::string exchange(const std::string& host, std::uint16_t port, const TlsContext& context) {
    TlsStream stream = TlsStream::connect(host, port, context, 10s);
    stream.write("ping", 4);
    std::string answer;
    char buffer[64];
    while (const std::size_t got = stream.read(buffer, sizeof buffer))
        answer.append(buffer, got);
    return answer;
}

// A renewed certificate taken without restart is shown through the HTTP server (HttpServerTls), which
// hands its handshakes to TlsStream::accept with the same context.
TEST(TlsStream, ClientTrustsOnlyTheRightAuthorityAndName) {
    const Certificates certificates;
    ASSERT_TRUE(certificates.made());
    const auto serverFor = [&](const std::string& name) {
        return TlsContext::server(certificates.path(name + ".pem"), certificates.path(name + ".key"));
    };
    // The server presents these in turn, one handshake each, answering the line with the line and "!".
    const std::vector<TlsContext> presented = {serverFor("right"), serverFor("right"), serverFor("wrong"),
                                               serverFor("wrong")};
    ServerSocket listener("127.0.0.1", 0);
    std::atomic<int> refusedHandshakes{0};
    std::jthread server([&] {
        for (const TlsContext& context : presented) {
            auto socket = listener.accept(10s);
            if (!socket) return;
            try {
                TlsStream stream = TlsStream::accept(std::move(*socket), context, 10s);
                char buffer[64];
                std::string answer(buffer, stream.read(buffer, sizeof buffer));
                answer += "!";
                stream.write(answer.data(), answer.size());
                stream.close();
            } catch (const Zel::IO::IOException&) {
                ++refusedHandshakes;
            }
        }
    });
    const auto port = listener.port();
    const TlsContext trusting = TlsContext::client(certificates.path("ca.pem"));
    EXPECT_EQ(exchange("localhost", port, trusting), "ping!");
    EXPECT_THROW(exchange("localhost", port, TlsContext::client()), Zel::IO::IOException)
        << "signed by an authority the system does not trust";
    EXPECT_THROW(exchange("localhost", port, trusting), Zel::IO::IOException)
        << "the certificate names another host only";
    EXPECT_EQ(exchange("localhost", port, TlsContext::client({}, TlsContext::Verification::None)), "ping!");
    server.join();
    EXPECT_EQ(refusedHandshakes, 2);
    EXPECT_THROW(TlsContext::server(certificates.path("missing.pem"), certificates.path("right.key")),
                 Zel::IO::IOException);
}

} // namespace
