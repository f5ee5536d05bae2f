#include <Zel/Db/Detail/PoolState.h>
#include <Zel/Db/PooledConnection.h>

namespace Zel::Db {

void PooledConnection::State::giveBack(std::unique_ptr<Connection> connection) noexcept {
    bool keep = connection->opened();
    if (keep && connection->inTransaction()) {
        try {
            connection->rollback();
        } catch (...) {
            keep = false;
        }
    }
    {
        std::lock_guard lock(mutex);
        --inUse;
        if (keep && !poolGone) {
            idle.push_back(std::move(connection));
        }
    }
    available.notify_one();
    // A connection not kept closes here, outside the lock.
}

PooledConnection::PooledConnection(std::shared_ptr<State> state,
                                   std::unique_ptr<Connection> connection) noexcept
    : m_state(std::move(state)), m_connection(std::move(connection)) {}

PooledConnection::PooledConnection(PooledConnection&& other) noexcept
    : m_state(std::move(other.m_state)), m_connection(std::move(other.m_connection)) {}

PooledConnection& PooledConnection::operator=(PooledConnection&& other) noexcept {
    if (this != &other) {
        release();
        m_state = std::move(other.m_state);
        m_connection = std::move(other.m_connection);
    }
    return *this;
}

PooledConnection::~PooledConnection() {
    release();
}

void PooledConnection::release() noexcept {
    if (m_connection) m_state->giveBack(std::move(m_connection));
    m_state.reset();
}

} // namespace Zel::Db
