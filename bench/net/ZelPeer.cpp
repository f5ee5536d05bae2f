// The Zel server answering the benchmark's two routes, for bench/net/run.sh.
//     zel-bench-net-zel PORT [THREADS]
#include "PeerCommon.h"

#include <Zel/IO/AbstractStream.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Router.h>
#include <Zel/Net/Http/Server.h>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

// A body over a constant text, with its length known, that copies nothing when made.
class ConstantStream : public Zel::IO::AbstractStream {
public:
    explicit ConstantStream(std::string_view text) : m_text(text) {}
    std::size_t read(void* buffer, std::size_t size) override {
        const std::size_t taken = std::min(size, m_text.size() - m_position);
        std::memcpy(buffer, m_text.data() + m_position, taken);
        m_position += taken;
        return taken;
    }
    std::uint32_t capabilities() const override { return Readable | LengthKnown; }
    std::int64_t getLength() const override { return static_cast<std::int64_t>(m_text.size()); }
    std::int64_t getPosition() const override { return static_cast<std::int64_t>(m_position); }

private:
    std::string_view m_text;
    std::size_t m_position = 0;
};

} // namespace

int main(int argc, char** argv) {
    using namespace Zel::Net::Http;
    const auto [port, threads] = Bench::parseArguments(argc, argv);
    auto router = std::make_shared<Router>();
    router->get("/plaintext", [](Request&, Response& response, const Router::Params&) {
        response.setBody(std::make_shared<ConstantStream>(Bench::plaintext));
        response.headers().setContentType("text/plain");
    });
    router->get("/json", [](Request&, Response& response, const Router::Params&) {
        response.setBodyJson(std::string(Bench::json));
    });
    Server::Options options;
    options.port = port;
    options.ioThreads = threads;
    Server server(router, options);
    server.start();
    Bench::waitForSignal();
    server.stop();
}
