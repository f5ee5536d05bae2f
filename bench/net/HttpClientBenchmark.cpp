// The HTTP client's requests per second over one kept connection, against cpp-httplib's client in
// the same run and against the same server: a cpp-httplib server in this process on 127.0.0.1, so
// that both clients pay the same server cost and the ratio shows the clients alone.

#include "../CapturingReporter.h"

#include <Zel/Net/Http/Client.h>
#include <Zel/Variant.h>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <httplib.h>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

const std::string jsonBody = [] {
    std::string body = "{\"items\":[";
    for (int i = 0; i < 20; ++i)
        body += std::string(i ? "," : "") + "{\"id\":" + std::to_string(i) + ",\"name\":\"note number " +
                std::to_string(i) + "\",\"done\":false}";
    return body + "]}";
}();

class LocalServer {
public:
    LocalServer() {
        m_server.set_keep_alive_max_count(1'000'000'000);
        // Without it the head and body writes of one answer meet the client's delayed ACK: 40 ms each.
        m_server.set_tcp_nodelay(true);
        m_server.Get("/plaintext", [](const httplib::Request&, httplib::Response& response) {
            response.set_content("Hello, World!", "text/plain");
        });
        m_server.Post("/echo", [](const httplib::Request& request, httplib::Response& response) {
            response.set_content(request.body, "application/json");
        });
        m_port = m_server.bind_to_any_port("127.0.0.1");
        if (m_port <= 0) throw std::runtime_error("cannot listen on 127.0.0.1");
        // The socket listens from bind on: clients that come before the accept loop wait in its backlog.
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
    }
    ~LocalServer() {
        m_server.stop();
        m_thread.join();
    }
    int port() const noexcept { return m_port; }
    std::string url(const char* path) const { return "http://127.0.0.1:" + std::to_string(m_port) + path; }

private:
    httplib::Server m_server;
    int m_port = 0;
    std::thread m_thread;
};

std::unique_ptr<LocalServer> server;

void getZel(benchmark::State& state) {
    Zel::Net::Http::Client client;
    const std::string url = server->url("/plaintext");
    for (auto _ : state) {
        const auto response = client.get(url);
        if (response.statusCode() != 200 || response.body().size() != 13) state.SkipWithError("bad answer");
    }
    state.SetItemsProcessed(state.iterations());
}

void getHttplib(benchmark::State& state) {
    httplib::Client client("127.0.0.1", server->port());
    client.set_keep_alive(true);
    client.set_tcp_nodelay(true); // as Zel's client does
    for (auto _ : state) {
        const auto response = client.Get("/plaintext");
        if (!response || response->status != 200 || response->body.size() != 13)
            state.SkipWithError("bad answer");
    }
    state.SetItemsProcessed(state.iterations());
}

void postJsonZel(benchmark::State& state) {
    Zel::Net::Http::Client client;
    const std::string url = server->url("/echo");
    for (auto _ : state) {
        const auto response = client.post(url, jsonBody, "application/json");
        if (response.statusCode() != 200 || response.body().size() != jsonBody.size())
            state.SkipWithError("bad answer");
    }
    state.SetItemsProcessed(state.iterations());
}

void postJsonHttplib(benchmark::State& state) {
    httplib::Client client("127.0.0.1", server->port());
    client.set_keep_alive(true);
    client.set_tcp_nodelay(true); // as Zel's client does
    for (auto _ : state) {
        const auto response = client.Post("/echo", jsonBody, "application/json");
        if (!response || response->status != 200 || response->body.size() != jsonBody.size()) {
            state.SkipWithError("bad answer");
        }
    }
    state.SetItemsProcessed(state.iterations());
}

using Benchmark = void (*)(benchmark::State&);

struct Case {
    std::string name;
    Benchmark zel;
    Benchmark peer;
};

const std::vector<Case> cases = {
    {"ClientGetPlaintext", getZel, getHttplib},
    {"ClientPostJson", postJsonZel, postJsonHttplib},
};

void registerBenchmarks() {
    server = std::make_unique<LocalServer>();
    for (const Case& test : cases) {
        for (const auto& [library, run] : {std::pair{"Zel", test.zel}, std::pair{"cpp-httplib", test.peer}}) {
            // Real time: the client mostly waits for the server thread.
            benchmark::RegisterBenchmark((test.name + "/" + library).c_str(), [run = run](
                                                                                  benchmark::State& state) {
                try {
                    run(state);
                } catch (const std::exception& error) {
                    state.SkipWithError(error.what());
                }
            })->UseRealTime();
        }
    }
}

void printRatios(const Zel::Bench::CapturingReporter& reporter) {
    std::cout << "\nZel's client relative to cpp-httplib's (requests/s, above 1 means Zel is faster):\n";
    for (const Case& test : cases) {
        const double zel = reporter.counter(test.name + "/Zel/real_time", "items_per_second");
        const double peer = reporter.counter(test.name + "/cpp-httplib/real_time", "items_per_second");
        char line[200];
        std::snprintf(line, sizeof line, "%-20s Zel/cpp-httplib requests/s %s (%.0f vs %.0f)",
                      (test.name + ":").c_str(), Zel::Bench::formatRatio(zel, peer).c_str(), zel, peer);
        std::cout << line << '\n';
    }
    server.reset();
}

} // namespace

int main(int argc, char** argv) {
    return Zel::Bench::runBenchmarks(argc, argv, "zel-bench-net-client", registerBenchmarks, printRatios);
}
