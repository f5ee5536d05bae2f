#pragma once

#include <Zel/Db/PooledConnection.h>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

namespace Zel::Db {

class Connection;

// Connections kept open for reuse between threads. acquire() hands out an idle connection, or opens
// a new one below the maximum, or waits for one to come back; the handle gives it back when it goes.
//
//     Db::ConnectionPool pool([] { return Db::Connection::create(connectionString); }, {.maxSize = 8});
//     auto connection = pool.acquire(std::chrono::seconds(2));
//     connection->execute("UPDATE item SET qty=qty-1 WHERE id=?", {7});
//
// An idle connection is asked isAlive() before it is handed out; one whose server went away is
// dropped and replaced by a fresh one. A connection that comes back with its transaction still open
// is rolled back first, so no one inherits another's half-done work; one that cannot be rolled back
// is dropped.
//
// Thread safety: every operation may be called from any thread. The pool's state lives as long as
// the last handle, so a handle may outlive the pool object.
class ZEL_API ConnectionPool {
public:
    using Factory = std::function<std::unique_ptr<Connection>()>;

    struct Options {
        // Opened by the constructor and kept open while idle.
        std::size_t minSize = 0;
        std::size_t maxSize = 8;
    };

    struct Metrics {
        std::size_t inUse = 0;
        std::size_t idle = 0;
        // Acquires that found no connection at hand and had to wait.
        std::uint64_t waits = 0;
        // Acquires that gave up after their timeout.
        std::uint64_t timeouts = 0;
        // Connections opened, and of those, opened to replace one that had died.
        std::uint64_t created = 0;
        std::uint64_t replaced = 0;
    };

    // Opens minSize connections at once (DbException when the factory fails). ArgumentException for
    // a maximum of 0 or below the minimum, or an empty factory.
    ConnectionPool(Factory factory, Options options);
    // Closes the idle connections; handles still out close theirs when they come back.
    ~ConnectionPool();

    // A connection within `timeout`; DbException "Db pool: no connection within the timeout |
    // timeoutMs=%d | maxSize=%d" after it. A failure of the factory passes through and the place it
    // would have taken is freed.
    PooledConnection acquire(std::chrono::milliseconds timeout);

    Metrics metrics() const;
    const Options& options() const noexcept;

    ConnectionPool(const ConnectionPool&) = delete;
    ConnectionPool& operator=(const ConnectionPool&) = delete;

private:
    std::shared_ptr<PooledConnection::State> m_state;
};

} // namespace Zel::Db
