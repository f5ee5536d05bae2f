// cpp-httplib answering the benchmark's two routes with a pool of THREADS threads.
//     zel-bench-net-httplib PORT [THREADS]
#include "PeerCommon.h"

#include <httplib.h>
#include <thread>

int main(int argc, char** argv) {
    const auto [port, threads] = Bench::parseArguments(argc, argv);
    httplib::Server server;
    // As the other servers do: otherwise each answer's head and body writes meet the client's
    // delayed ACK, and every request waits 40 ms.
    server.set_tcp_nodelay(true);
    server.new_task_queue = [threads = threads] {
        return new httplib::ThreadPool(static_cast<std::size_t>(threads));
    };
    server.Get("/plaintext", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(std::string(Bench::plaintext), "text/plain");
    });
    server.Get("/json", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(std::string(Bench::json), "application/json");
    });
    std::thread serving([&server, port = port] { server.listen("127.0.0.1", port); });
    Bench::waitForSignal();
    server.stop();
    serving.join();
}
