#pragma once

#include <Zel/Export.h>
#include <memory>

namespace Zel::Db {

class Connection;
class ConnectionPool;

// A connection lent by a ConnectionPool; move-only. Destroying the handle (or release()) gives the
// connection back. Use it like a pointer to Connection.
class ZEL_API PooledConnection {
public:
    struct State;

    PooledConnection() noexcept = default;
    PooledConnection(PooledConnection&& other) noexcept;
    PooledConnection& operator=(PooledConnection&& other) noexcept;
    ~PooledConnection();

    Connection* operator->() const noexcept { return m_connection.get(); }
    Connection& operator*() const noexcept { return *m_connection; }
    Connection* get() const noexcept { return m_connection.get(); }
    explicit operator bool() const noexcept { return m_connection != nullptr; }

    // Gives the connection back now; the handle is empty afterwards.
    void release() noexcept;

    PooledConnection(const PooledConnection&) = delete;
    PooledConnection& operator=(const PooledConnection&) = delete;

private:
    friend class ConnectionPool;
    PooledConnection(std::shared_ptr<State> state, std::unique_ptr<Connection> connection) noexcept;

    std::shared_ptr<State> m_state;
    std::unique_ptr<Connection> m_connection;
};

} // namespace Zel::Db
