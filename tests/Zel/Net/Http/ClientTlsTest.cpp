#include "ScriptedServer.h"

#include <Zel/Net/Http/Client.h>
#include <Zel/Net/Http/HttpException.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

namespace Zel::Net::Http {
namespace {

using namespace std::chrono_literals;
using Testing::Peer;
using Testing::ScriptedServer;

// A certificate authority and two server certificates it signed, made afresh with the openssl tool:
// one for 127.0.0.1 and localhost, one for another name only.
class Certificates {
public:
    Certificates() {
        char pattern[] = "/tmp/zel-client-tls-XXXXXX";
        m_dir = ::mkdtemp(pattern);
        std::ofstream(m_dir / "right.ext") << "subjectAltName=IP:127.0.0.1,DNS:localhost\n";
        std::ofstream(m_dir / "wrong.ext") << "subjectAltName=DNS:other.test\n";
        const std::string script =
            "cd '" + m_dir.string() +
            "' && "
            "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout ca.key -out "
            "ca.pem "
            "-days 2 -subj '/CN=Zel Test CA' -addext basicConstraints=critical,CA:TRUE "
            "-addext keyUsage=critical,keyCertSign 2>/dev/null && "
            "for name in right wrong; do "
            "openssl req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -keyout $name.key -out "
            "$name.csr "
            "-subj /CN=$name 2>/dev/null && "
            "openssl x509 -req -in $name.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2 -extfile "
            "$name.ext "
            "-out $name.pem 2>/dev/null || exit 1; done";
        m_made = std::system(script.c_str()) == 0;
    }
    ~Certificates() { std::filesystem::remove_all(m_dir); }

    bool made() const noexcept { return m_made; }
    std::string path(const std::string& file) const { return (m_dir / file).string(); }

    // A server context presenting the named certificate.
    std::shared_ptr<SSL_CTX> serverContext(const std::string& name) const {
        std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
        SSL_CTX_use_certificate_chain_file(context.get(), path(name + ".pem").c_str());
        SSL_CTX_use_PrivateKey_file(context.get(), path(name + ".key").c_str(), SSL_FILETYPE_PEM);
        return context;
    }

private:
    std::filesystem::path m_dir;
    bool m_made = false;
};

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
        try {
            Client(row.options).get(refused.url());
            ADD_FAILURE() << "no error";
        } catch (const HttpException& error) {
            EXPECT_THAT(error.what(),
                        ::testing::StartsWith("HTTP client: TLS handshake failed | host=127.0.0.1"));
            EXPECT_THAT(error.what(), ::testing::HasSubstr("certificate verify failed"));
        }
        EXPECT_EQ(refused.accepted(), 0);
    }
    // Without verification even the wrong certificate is accepted: the option is the caller's to take.
    ScriptedServer unverified(answerOk, wrong.get());
    EXPECT_EQ(Client(ClientOptions().setVerifyPeer(false)).get(unverified.url()).body(), "secure");
}

} // namespace
} // namespace Zel::Net::Http
