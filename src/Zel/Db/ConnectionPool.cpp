#include <Zel/ArgumentException.h>
#include <Zel/Db/ConnectionPool.h>
#include <Zel/Db/DbException.h>
#include <Zel/Db/Detail/PoolState.h>

namespace Zel::Db {

ConnectionPool::ConnectionPool(Factory factory, Options options) {
    if (!factory) throw ArgumentException("Db pool: no connection factory");
    if (options.maxSize == 0 || options.minSize > options.maxSize)
        throw ArgumentException("Db pool: invalid size | minSize=" + std::to_string(options.minSize) +
                                " | maxSize=" + std::to_string(options.maxSize));
    m_state = std::make_shared<PooledConnection::State>(std::move(factory), options);
    for (std::size_t i = 0; i < options.minSize; ++i) {
        auto connection = m_state->factory();
        if (!connection) throw DbException("Db pool: the factory returned no connection");
        m_state->idle.push_back(std::move(connection));
        ++m_state->counters.created;
    }
}

ConnectionPool::~ConnectionPool() {
    std::vector<std::unique_ptr<Connection>> idle;
    {
        std::lock_guard lock(m_state->mutex);
        m_state->poolGone = true;
        idle.swap(m_state->idle);
    }
    // The idle connections close here, outside the lock.
}

PooledConnection ConnectionPool::acquire(std::chrono::milliseconds timeout) {
    auto& state = *m_state;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    bool waited = false;
    bool replacing = false;
    std::unique_lock lock(state.mutex);
    for (;;) {
        while (!state.idle.empty()) {
            auto connection = std::move(state.idle.back());
            state.idle.pop_back();
            ++state.inUse;
            lock.unlock();
            if (connection->isAlive()) return PooledConnection(m_state, std::move(connection));
            connection.reset();
            lock.lock();
            --state.inUse;
            replacing = true;
        }
        if (state.inUse + state.opening < state.options.maxSize) {
            ++state.opening;
            lock.unlock();
            std::unique_ptr<Connection> connection;
            try {
                connection = state.factory();
                if (!connection) throw DbException("Db pool: the factory returned no connection");
            } catch (...) {
                lock.lock();
                --state.opening;
                lock.unlock();
                state.available.notify_one();
                throw;
            }
            lock.lock();
            --state.opening;
            ++state.inUse;
            ++state.counters.created;
            if (replacing) ++state.counters.replaced;
            return PooledConnection(m_state, std::move(connection));
        }
        if (!waited) {
            waited = true;
            ++state.counters.waits;
        }
        if (state.available.wait_until(lock, deadline) == std::cv_status::timeout && state.idle.empty() &&
            state.inUse + state.opening >= state.options.maxSize) {
            ++state.counters.timeouts;
            throw DbException(
                "Db pool: no connection within the timeout | timeoutMs=" + std::to_string(timeout.count()) +
                " | maxSize=" + std::to_string(state.options.maxSize));
        }
    }
}

ConnectionPool::Metrics ConnectionPool::metrics() const {
    std::lock_guard lock(m_state->mutex);
    Metrics metrics = m_state->counters;
    metrics.inUse = m_state->inUse;
    metrics.idle = m_state->idle.size();
    return metrics;
}

const ConnectionPool::Options& ConnectionPool::options() const noexcept {
    return m_state->options;
}

} // namespace Zel::Db
