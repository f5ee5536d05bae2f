// Kills the real host with SIGKILL in the middle of a stream of writes, again and again, and checks
// after each restart that every acknowledged write is there and nothing uncommitted is.

#include "HostProcess.h"

#include <Zel/Json/Json.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <thread>

namespace {

std::int64_t resultOf(const std::string& reply) {
    return static_cast<std::int64_t>(Zel::Json::parse(reply)["result"]);
}

std::set<std::string> listKeys(HostProcess& host, const std::string& prefix) {
    const Zel::Variant reply =
        Zel::Json::parse(host.call("DataStore.listKeys {\"prefix\":\"" + prefix + "\"}"));
    std::set<std::string> keys;
    for (const auto& key : reply["data"])
        keys.insert(key.value());
    return keys;
}

} // namespace

TEST(HostDurabilityTest, AcknowledgedWritesSurviveSigkillAndUncommittedOnesDoNot) {
    const std::string data = ::testing::TempDir() + "zel-durability-" + std::to_string(getpid());
    std::filesystem::remove_all(data);
    const std::vector<std::string> arguments = {"--data", data};
    std::mt19937 random(std::random_device{}());
    SCOPED_TRACE("seed-free run; the data directory is " + data);

    std::map<std::string, std::int64_t> committed;   // acknowledged: must be there with this value
    std::set<std::string> maybe;                     // sent, not acknowledged: either way
    std::vector<std::set<std::string>> allOrNothing; // a commit in flight: all of its keys or none
    std::int64_t next = 0;
    constexpr int kills = 24;

    for (int round = 0; round <= kills; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        HostProcess host(arguments);
        // What the previous rounds left.
        const std::set<std::string> present = listKeys(host, "");
        for (const auto& [key, value] : committed) {
            ASSERT_TRUE(present.contains(key)) << "lost an acknowledged write: " << key;
        }
        for (const std::string& key : present)
            ASSERT_TRUE(committed.contains(key) || maybe.contains(key) ||
                        std::any_of(allOrNothing.begin(), allOrNothing.end(),
                                    [&](const auto& keys) { return keys.contains(key); }))
                << "an uncommitted write is there: " << key;
        for (const auto& keys : allOrNothing) {
            const auto found = std::count_if(keys.begin(), keys.end(),
                                             [&](const auto& key) { return present.contains(key); });
            ASSERT_TRUE(found == 0 || found == static_cast<long>(keys.size()))
                << "a transaction came back in part";
            if (found != 0)
                for (const std::string& key : keys)
                    committed[key] = 0;
        }
        for (const std::string& key : maybe)
            if (present.contains(key)) committed[key] = 0;
        maybe.clear();
        allOrNothing.clear();
        // Values too, for a sample.
        for (const auto& [key, value] : committed)
            if (value != 0 && std::uniform_int_distribution(0, 9)(random) == 0) {
                const Zel::Variant reply =
                    Zel::Json::parse(host.call("DataStore.getKey {\"key\":\"" + key + "\"}"));
                ASSERT_EQ(static_cast<std::int64_t>(reply["data"]), value) << key;
            }
        if (round == kills) break;

        // A stream of writes, killed after a random number of steps while a request is in flight.
        const int steps = std::uniform_int_distribution(3, 25)(random);
        for (int step = 0;; ++step) {
            const bool last = step == steps;
            if (std::uniform_int_distribution(0, 1)(random) == 0) {
                const std::string key = "auto/" + std::to_string(++next);
                const std::string line =
                    R"(DataStore.setKey {"key":")" + key + R"(","value":)" + std::to_string(next) + "}";
                if (last) {
                    host.send(line);
                    maybe.insert(key);
                    break;
                }
                ASSERT_EQ(resultOf(host.call(line)), 0);
                committed[key] = next;
                continue;
            }
            const Zel::Variant begun = Zel::Json::parse(host.call("DataStore.beginTransaction {}"));
            const std::string id = std::to_string(static_cast<std::int64_t>(begun["data"]));
            std::map<std::string, std::int64_t> written;
            const int size = std::uniform_int_distribution(1, 5)(random);
            for (int i = 0; i < size; ++i) {
                const std::string key = "tx/" + std::to_string(++next);
                ASSERT_EQ(resultOf(host.call(R"(DataStore.setKey {"key":")" + key + R"(","value":)" +
                                             std::to_string(next) + R"(,"transactionId":)" + id + "}")),
                          0);
                written[key] = next;
            }
            const bool commit = std::uniform_int_distribution(0, 2)(random) != 0;
            const std::string end = std::string("DataStore.") + (commit ? "commit" : "rollback") +
                                    "Transaction {\"transactionId\":" + id + "}";
            if (last) {
                // Killed with the transaction open (nothing may stay) or its commit in flight (all or
                // nothing).
                if (std::uniform_int_distribution(0, 1)(random) == 0 && commit) {
                    host.send(end);
                    std::set<std::string> keys;
                    for (const auto& entry : written)
                        keys.insert(entry.first);
                    allOrNothing.push_back(std::move(keys));
                }
                break;
            }
            ASSERT_EQ(resultOf(host.call(end)), 0);
            if (commit) committed.insert(written.begin(), written.end());
        }
        // Lands anywhere from before the host reads the request to after it has replied.
        std::this_thread::sleep_for(
            std::chrono::microseconds(std::uniform_int_distribution(0, 3000)(random)));
        host.kill();
    }
    EXPECT_GT(committed.size(), 50u);
    std::filesystem::remove_all(data);
}
