#include <Zel/Net/DatagramSocket.h>
#include <Zel/Net/NetworkAdapter.h>
#include <algorithm>
#include <gtest/gtest.h>

using namespace Zel::Net;
using namespace std::chrono_literals;

namespace {

TEST(DatagramSocket, SendsAndReceivesWithBoundsKept) {
    DatagramSocket a("127.0.0.1", 0);
    DatagramSocket b("127.0.0.1", 0);
    a.sendTo("first", 5, "127.0.0.1", b.port());
    a.sendTo("second!", 7, "127.0.0.1", b.port());
    char buffer[16];
    const auto first = b.receiveFrom(buffer, sizeof buffer, 5s);
    ASSERT_TRUE(first);
    EXPECT_EQ(std::string(buffer, first->size), "first");
    EXPECT_EQ(first->address, "127.0.0.1");
    EXPECT_EQ(first->port, a.port());
    const auto cut = b.receiveFrom(buffer, 3, 5s);
    ASSERT_TRUE(cut);
    EXPECT_EQ(std::string(buffer, cut->size), "sec") << "a datagram longer than the buffer arrives cut";
    EXPECT_FALSE(b.receiveFrom(buffer, sizeof buffer, 20ms)) << "nothing more was sent";
}

TEST(NetworkAdapter, ListsTheLoopbackUpWithItsAddress) {
    const auto adapters = NetworkAdapter::list();
    const auto loopback = std::find_if(adapters.begin(), adapters.end(),
                                       [](const NetworkAdapter& adapter) { return adapter.loopback; });
    ASSERT_NE(loopback, adapters.end());
    EXPECT_TRUE(loopback->up);
    EXPECT_NE(std::find(loopback->addresses.begin(), loopback->addresses.end(), "127.0.0.1"),
              loopback->addresses.end());
}

} // namespace
