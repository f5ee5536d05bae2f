#include <Zel/IO/IOException.h>
#include <Zel/Net/ServerSocket.h>
#include <Zel/Net/StreamSocket.h>
#include <Zel/Net/TcpServer.h>
#include <Zel/Tasks/Manager.h>
#include <Zel/Tasks/Queue.h>
#include <condition_variable>
#include <future>
#include <gtest/gtest.h>
#include <mutex>

using namespace Zel::Net;
using namespace std::chrono_literals;

namespace {

std::string readLine(StreamSocket& socket) {
    std::string line;
    char c = 0;
    while (socket.read(&c, 1) == 1 && c != '\n')
        line += c;
    return line;
}

TEST(StreamSocket, ConnectsReadsPeeksAndTimesOut) {
    ServerSocket listener("127.0.0.1", 0);
    StreamSocket client;
    client.connect("127.0.0.1", listener.port(), 5s);
    auto server = listener.accept(5s);
    ASSERT_TRUE(server);
    EXPECT_EQ(server->remotePort(), client.localPort());
    client.write("hello\n", 6);
    char peeked[5] = {};
    EXPECT_EQ(server->peek(peeked, 5), 5u);
    EXPECT_EQ(std::string(peeked, 5), "hello");
    EXPECT_EQ(readLine(*server), "hello");
    EXPECT_EQ(server->getPosition(), 6);

    server->setReadTimeout(50ms);
    char byte;
    EXPECT_THROW(server->read(&byte, 1), Zel::IO::IOException);
    EXPECT_FALSE(server->isOpen());
    EXPECT_EQ(client.read(&byte, 1), 0u) << "the side that timed out closed";

    EXPECT_FALSE(listener.accept(20ms)) << "nobody else connects";
    StreamSocket refused;
    ServerSocket closedAgain("127.0.0.1", 0);
    const auto port = closedAgain.port();
    closedAgain.close();
    EXPECT_THROW(refused.connect("127.0.0.1", port, 5s), Zel::IO::IOException);
}

TEST(TcpServer, ServesEachConnectionAsATaskWithinItsLimits) {
    Zel::Tasks::Manager manager(nullptr, nullptr, nullptr);
    manager.start();
    auto queue = manager.addQueue("tcp", 8);
    std::mutex mutex;
    std::condition_variable changed;
    int holding = 0;
    bool released = false;
    TcpServer::Options options;
    options.maxConnections = 2;
    options.idleTimeout = 1s;
    TcpServer server(
        [&](StreamSocket& socket) {
            while (true) {
                const std::string line = readLine(socket);
                if (line.empty()) return;
                if (line == "hold") {
                    std::unique_lock lock(mutex);
                    ++holding;
                    changed.notify_all();
                    changed.wait(lock, [&] { return released; });
                }
                const std::string answer = line + "!\n";
                socket.write(answer.data(), answer.size());
            }
        },
        options, queue);
    server.start();

    StreamSocket first;
    first.connect("127.0.0.1", server.port());
    first.write("one\nhold\n", 9);
    EXPECT_EQ(readLine(first), "one!");
    StreamSocket second;
    second.connect("127.0.0.1", server.port());
    second.write("hold\n", 5);
    {
        std::unique_lock lock(mutex);
        ASSERT_TRUE(changed.wait_for(lock, 10s, [&] { return holding == 2; }));
    }
    StreamSocket third;
    third.connect("127.0.0.1", server.port());
    third.write("x\n", 2);
    char byte;
    EXPECT_EQ(third.read(&byte, 1), 0u) << "beyond two connections the server closes at once";

    // Stopping waits for the handlers in progress; both answer once released.
    auto stopped = std::async(std::launch::async, [&] { server.stop(); });
    {
        const std::lock_guard lock(mutex);
        released = true;
        changed.notify_all();
    }
    EXPECT_EQ(readLine(first), "hold!");
    EXPECT_EQ(readLine(second), "hold!");
    // Then, silent, each is closed by the server within its idle timeout.
    EXPECT_EQ(first.read(&byte, 1), 0u);
    stopped.get();
    EXPECT_EQ(server.connectionCount(), 0u);
    manager.stop();
}

} // namespace
