#pragma once

#include <Zel/Db/Connection.h>
#include <Zel/Db/ConnectionPool.h>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace Zel::Db {

// What a pool and its handles share. Everything below `mutex` is guarded by it; connections are
// opened, checked, rolled back and closed outside it, since each of those may be a round trip.
struct PooledConnection::State {
    State(ConnectionPool::Factory makeConnection, ConnectionPool::Options poolOptions)
        : factory(std::move(makeConnection)), options(poolOptions) {}

    // Takes a connection back from a handle. Never throws: a connection that cannot be made clean
    // again is closed instead of kept.
    void giveBack(std::unique_ptr<Connection> connection) noexcept;

    const ConnectionPool::Factory factory;
    const ConnectionPool::Options options;

    mutable std::mutex mutex;
    std::condition_variable available;
    // The most recently returned last: it is handed out first, so the rest may age out.
    std::vector<std::unique_ptr<Connection>> idle;
    std::size_t inUse = 0;
    // Places held by connections being opened outside the lock.
    std::size_t opening = 0;
    ConnectionPool::Metrics counters;
    bool poolGone = false;
};

} // namespace Zel::Db
