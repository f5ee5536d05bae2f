#include "TestDatabase.h"

#include <Zel/Db/Connection.h>
#include <Zel/Db/ConnectionPool.h>
#include <Zel/Db/DbException.h>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace ZelTest {
namespace {

using namespace std::chrono_literals;
using Zel::Db::Connection;
using Zel::Db::ConnectionPool;
using Zel::Db::DbException;

class ConnectionPoolTest : public ::testing::TestWithParam<Backend> {
protected:
    void SetUp() override {
        m_database = GetParam().make();
        Connection::create(m_database->connectionString())
            ->execute("CREATE TABLE item (id INTEGER NOT NULL PRIMARY KEY, name VARCHAR(20))");
    }

    ConnectionPool::Factory factory() {
        return [this] {
            ++m_opened;
            return Connection::create(m_database->connectionString());
        };
    }

    std::unique_ptr<TestDatabase> m_database;
    std::atomic<int> m_opened{0};
};

TEST_P(ConnectionPoolTest, OpensTheMinimumUpFrontAndNeverExceedsTheMaximum) {
    ConnectionPool pool(factory(), {.minSize = 2, .maxSize = 3});
    EXPECT_EQ(m_opened, 2);
    EXPECT_EQ(pool.metrics().idle, 2u);

    constexpr int threads = 8, rounds = 60;
    std::atomic<int> current{0}, peak{0}, served{0}, failed{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        workers.emplace_back([&] {
            for (int i = 0; i < rounds; ++i) {
                try {
                    auto connection = pool.acquire(30s);
                    const int now = ++current;
                    int seen = peak.load();
                    while (now > seen && !peak.compare_exchange_weak(seen, now)) {
                    }
                    connection->scalar("SELECT COUNT(*) FROM item");
                    --current;
                    ++served;
                } catch (...) {
                    ++failed;
                }
            }
        });
    }
    for (auto& worker : workers)
        worker.join();

    const auto metrics = pool.metrics();
    EXPECT_EQ(failed, 0);
    EXPECT_EQ(served, threads * rounds);
    EXPECT_LE(peak, 3);
    EXPECT_EQ(metrics.inUse, 0u);
    EXPECT_EQ(metrics.idle, static_cast<std::size_t>(m_opened.load()));
    EXPECT_EQ(metrics.created, static_cast<std::uint64_t>(m_opened.load()));
    EXPECT_LE(metrics.created, 3u);
    EXPECT_EQ(metrics.timeouts, 0u);
    EXPECT_EQ(metrics.replaced, 0u);
}

TEST_P(ConnectionPoolTest, TimesOutWithTheExactMessage) {
    ConnectionPool pool(factory(), {.minSize = 0, .maxSize = 1});
    auto held = pool.acquire(1s);
    try {
        pool.acquire(20ms);
        ADD_FAILURE() << "a second connection was handed out";
    } catch (const DbException& e) {
        EXPECT_STREQ(e.what(), "Db pool: no connection within the timeout | timeoutMs=20 | maxSize=1");
    }
    const auto metrics = pool.metrics();
    EXPECT_EQ(metrics.timeouts, 1u);
    EXPECT_EQ(metrics.waits, 1u);
    EXPECT_EQ(metrics.inUse, 1u);
}

TEST_P(ConnectionPoolTest, RollsBackWhatAConnectionBringsBack) {
    ConnectionPool pool(factory(), {.minSize = 1, .maxSize = 1});
    {
        auto connection = pool.acquire(1s);
        connection->begin();
        connection->execute("INSERT INTO item (id, name) VALUES (1, 'left open')");
    }
    auto connection = pool.acquire(1s);
    EXPECT_FALSE(connection->inTransaction());
    EXPECT_EQ(static_cast<std::int64_t>(connection->scalar("SELECT COUNT(*) FROM item")), 0);
    EXPECT_EQ(m_opened, 1);
}

TEST_P(ConnectionPoolTest, ReplacesAConnectionWhoseServerEndedIt) {
    if (std::string(GetParam().name) != "postgresql") GTEST_SKIP() << "needs a server process to end";
    ConnectionPool pool(factory(), {.minSize = 1, .maxSize = 1});
    std::int64_t victim = 0;
    {
        auto connection = pool.acquire(1s);
        victim = static_cast<std::int64_t>(connection->scalar("SELECT pg_backend_pid()"));
    }
    auto admin = Connection::create(m_database->connectionString());
    ASSERT_TRUE(
        static_cast<bool>(admin->scalar("SELECT pg_terminate_backend(?)", {static_cast<int>(victim)})));
    // The backend exits on its own time: wait until the server no longer lists it.
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (static_cast<std::int64_t>(admin->scalar("SELECT COUNT(*) FROM pg_stat_activity WHERE pid = ?",
                                                   {static_cast<int>(victim)})) != 0)
        ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "backend " << victim << " still runs";

    auto connection = pool.acquire(5s);
    EXPECT_NE(static_cast<std::int64_t>(connection->scalar("SELECT pg_backend_pid()")), victim);
    const auto metrics = pool.metrics();
    EXPECT_EQ(metrics.replaced, 1u);
    EXPECT_EQ(metrics.created, 2u);
}

TEST_P(ConnectionPoolTest, AFailingFactoryFreesItsPlace) {
    std::atomic<bool> broken{true};
    ConnectionPool pool(
        [&] {
            return Connection::create(broken ? "DRIVER=NoSuchDriver;Database=x"
                                             : m_database->connectionString());
        },
        {.minSize = 0, .maxSize = 1});
    EXPECT_THROW(pool.acquire(1s), DbException);
    broken = false;
    auto connection = pool.acquire(1s); // would time out if the failed open still held the place
    EXPECT_TRUE(connection->isAlive());
    EXPECT_EQ(pool.metrics().created, 1u);
}

TEST_P(ConnectionPoolTest, HandlesOutliveThePool) {
    auto pool =
        std::make_unique<ConnectionPool>(factory(), ConnectionPool::Options{.minSize = 2, .maxSize = 2});
    auto connection = pool->acquire(1s);
    pool.reset();
    connection->execute("INSERT INTO item (id) VALUES (1)");
    EXPECT_EQ(static_cast<std::int64_t>(connection->scalar("SELECT COUNT(*) FROM item")), 1);
    connection.release();
    EXPECT_FALSE(connection);
}

INSTANTIATE_TEST_SUITE_P(Db, ConnectionPoolTest,
                         ::testing::Values(Backend{"sqlite", &makeSqliteDatabase},
                                           Backend{"postgresql", &makePostgresDatabase}),
                         backendName);

} // namespace
} // namespace ZelTest
