#pragma once

#include <Zel/Db/ConnectionPool.h>
#include <Zel/Db/PooledConnection.h>
#include <chrono>
#include <memory>
#include <string>

namespace ZelHost {

// The host's database: connections from a pool, and the tables of the data store and the messages,
// created when missing. Firebird (embedded by default, or a server) and ODBC databases differ only
// in a few statements, chosen here.
class Database {
public:
    // `connectionString` as Zel::Db::Connection::create takes it. DbException when the database
    // cannot be opened or its tables cannot be made.
    Database(std::string connectionString, std::size_t maxConnections);

    // DbException when no connection comes free within a few seconds.
    Zel::Db::PooledConnection acquire();
    bool firebird() const noexcept { return m_firebird; }

    // Writes `value` under `key`, whether or not it exists.
    void put(Zel::Db::Connection& connection, const std::string& key, const std::string& value) const;
    // The next message id, inside the caller's transaction.
    std::int64_t nextMessageId(Zel::Db::Connection& connection) const;

    // The embedded database file of a data directory, with forced writes on or off.
    static std::string embeddedConnectionString(const std::string& dataDirectory, bool forcedWrites);

private:
    void createSchema();

    std::string m_connectionString;
    bool m_firebird = false;
    std::unique_ptr<Zel::Db::ConnectionPool> m_pool;
};

} // namespace ZelHost
