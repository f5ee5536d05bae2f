#include <Zel/IO/IOException.h>
#include <Zel/Net/ServerSocket.h>
#include <Zel/Net/StreamSocket.h>
#include <Zel/Net/TlsContext.h>
#include <Zel/Net/TlsStream.h>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

using namespace Zel::Net;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

// Two authorities, each with a certificate for "localhost" only, made with the openssl tool.
class TlsTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = fs::temp_directory_path() / ("zel-tls-" + std::to_string(::getpid()));
        fs::create_directories(s_folder);
        for (const char* name : {"a", "b"})
            makeAuthorityAndCertificate(name);
    }
    static void TearDownTestSuite() { fs::remove_all(s_folder); }

    static void makeAuthorityAndCertificate(const std::string& name) {
        const std::string dir = s_folder.string() + "/";
        const std::string script =
            "cd " + dir + " && openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=ZelTestCA-" +
            name + " -keyout ca-" + name + ".key -out ca-" + name +
            ".pem && "
            "openssl req -newkey rsa:2048 -nodes -subj /CN=localhost -keyout server-" +
            name + ".key -out server-" + name +
            ".csr && printf 'subjectAltName=DNS:localhost' > ext && "
            "openssl x509 -req -in server-" +
            name + ".csr -CA ca-" + name + ".pem -CAkey ca-" + name +
            ".key -CAcreateserial -days 2 -extfile ext -out server-" + name + ".pem";
        ASSERT_EQ(std::system(("(" + script + ") >/dev/null 2>&1").c_str()), 0);
    }
    static std::string file(const std::string& name) { return (s_folder / name).string(); }

    // Serves `connections` handshakes, answering each line with the line and "!".
    void serve(const TlsContext& context, int connections) {
        m_server = std::thread([this, context, connections] {
            for (int i = 0; i < connections; ++i) {
                auto socket = m_listener.accept(10s);
                if (!socket) return;
                try {
                    TlsStream stream = TlsStream::accept(std::move(*socket), context, 10s);
                    char buffer[64];
                    const std::size_t got = stream.read(buffer, sizeof buffer);
                    std::string answer(buffer, got);
                    answer += "!";
                    stream.write(answer.data(), answer.size());
                    stream.close();
                } catch (const Zel::IO::IOException&) {
                    ++m_refusedHandshakes;
                }
            }
        });
    }
    void TearDown() override {
        if (m_server.joinable()) m_server.join();
    }

    static std::string exchange(const std::string& host, std::uint16_t port, const TlsContext& context) {
        TlsStream stream = TlsStream::connect(host, port, context, 10s);
        stream.write("ping", 4);
        std::string answer;
        char buffer[64];
        while (const std::size_t got = stream.read(buffer, sizeof buffer))
            answer.append(buffer, got);
        return answer;
    }

    static inline fs::path s_folder;
    ServerSocket m_listener{"127.0.0.1", 0};
    std::thread m_server;
    std::atomic<int> m_refusedHandshakes{0};
};

TEST_F(TlsTest, ClientTrustsOnlyTheRightAuthorityAndName) {
    const TlsContext server = TlsContext::server(file("server-a.pem"), file("server-a.key"));
    serve(server, 4);
    const auto port = m_listener.port();
    EXPECT_EQ(exchange("localhost", port, TlsContext::client(file("ca-a.pem"))), "ping!");
    SCOPED_TRACE("refusals");
    EXPECT_THROW(exchange("127.0.0.1", port, TlsContext::client(file("ca-a.pem"))), Zel::IO::IOException)
        << "the certificate names localhost only";
    EXPECT_THROW(exchange("localhost", port, TlsContext::client(file("ca-b.pem"))), Zel::IO::IOException)
        << "signed by an authority the client does not trust";
    EXPECT_EQ(exchange("127.0.0.1", port, TlsContext::client({}, TlsContext::Verification::None)), "ping!");
    m_server.join();
    EXPECT_EQ(m_refusedHandshakes, 2);
}

TEST_F(TlsTest, ServerTakesARenewedCertificateWithoutRestart) {
    fs::copy_file(file("server-a.pem"), file("live.pem"), fs::copy_options::overwrite_existing);
    fs::copy_file(file("server-a.key"), file("live.key"), fs::copy_options::overwrite_existing);
    TlsContext server = TlsContext::server(file("live.pem"), file("live.key"));
    serve(server, 2);
    const TlsContext trustsB = TlsContext::client(file("ca-b.pem"));
    EXPECT_THROW(exchange("localhost", m_listener.port(), trustsB), Zel::IO::IOException);
    fs::copy_file(file("server-b.pem"), file("live.pem"), fs::copy_options::overwrite_existing);
    fs::copy_file(file("server-b.key"), file("live.key"), fs::copy_options::overwrite_existing);
    server.reload();
    EXPECT_EQ(exchange("localhost", m_listener.port(), trustsB), "ping!");
    EXPECT_THROW(TlsContext::server(file("missing.pem"), file("live.key")), Zel::IO::IOException);
}

} // namespace
