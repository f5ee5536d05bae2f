#include "Database.h"

#include <Zel/Db/Connection.h>
#include <Zel/Db/DbException.h>
#include <filesystem>

namespace ZelHost {

namespace {

// Keys are indexed: 400 UTF-8 characters stay inside Firebird's index key limit at 8 KB pages.
constexpr const char* firebirdSchema[] = {
    "CREATE TABLE zelDataStore (dsKey VARCHAR(400) NOT NULL PRIMARY KEY, dsValue BLOB SUB_TYPE TEXT)",
    "CREATE TABLE zelMessages (id BIGINT NOT NULL PRIMARY KEY, channel VARCHAR(200) NOT NULL, "
    "msgText BLOB SUB_TYPE TEXT, msgData BLOB SUB_TYPE TEXT)",
    "CREATE INDEX zelMessagesChannel ON zelMessages (channel, id)",
    "CREATE SEQUENCE genZelMessageId",
};
constexpr const char* odbcSchema[] = {
    "CREATE TABLE zelDataStore (dsKey VARCHAR(400) NOT NULL PRIMARY KEY, dsValue TEXT)",
    "CREATE TABLE zelMessages (id BIGINT NOT NULL PRIMARY KEY, channel VARCHAR(200) NOT NULL, "
    "msgText TEXT, msgData TEXT)",
    "CREATE INDEX zelMessagesChannel ON zelMessages (channel, id)",
};

bool isOdbc(const std::string& connectionString) {
    std::string upper;
    for (const char c : connectionString)
        upper.push_back(static_cast<char>(std::toupper(static_cast<unsigned char>(c))));
    return upper.find("DRIVER=") != std::string::npos || upper.find("DSN=") != std::string::npos;
}

} // namespace

Database::Database(std::string connectionString, std::size_t maxConnections)
    : m_connectionString(std::move(connectionString)), m_firebird(!isOdbc(m_connectionString)) {
    m_pool = std::make_unique<Zel::Db::ConnectionPool>(
        [this] { return Zel::Db::Connection::create(m_connectionString); },
        Zel::Db::ConnectionPool::Options{.minSize = 1, .maxSize = maxConnections});
    createSchema();
}

std::string Database::embeddedConnectionString(const std::string& dataDirectory, bool forcedWrites) {
    std::filesystem::create_directories(dataDirectory);
    const std::string file =
        std::filesystem::absolute(std::filesystem::path(dataDirectory) / "zel-host.fdb").string();
    return "Database=" + file + ";Create=1;ForcedWrites=" + (forcedWrites ? "1" : "0");
}

Zel::Db::PooledConnection Database::acquire() {
    return m_pool->acquire(std::chrono::seconds(10));
}

void Database::createSchema() {
    auto connection = acquire();
    try {
        connection->scalar("SELECT COUNT(*) FROM zelDataStore WHERE 1 = 0");
        return;
    } catch (const Zel::Db::DbException&) {
        // First run: no tables yet.
    }
    connection->begin();
    try {
        if (m_firebird) {
            for (const char* statement : firebirdSchema)
                connection->execute(statement);
        } else {
            for (const char* statement : odbcSchema)
                connection->execute(statement);
        }
        connection->commit();
    } catch (...) {
        connection->rollback();
        throw;
    }
}

void Database::put(Zel::Db::Connection& connection, const std::string& key, const std::string& value) const {
    if (m_firebird) {
        connection.execute(
            "UPDATE OR INSERT INTO zelDataStore (dsKey, dsValue) VALUES (?, ?) MATCHING (dsKey)",
            {key, value});
        return;
    }
    if (connection.execute("UPDATE zelDataStore SET dsValue = ? WHERE dsKey = ?", {value, key}) == 0)
        connection.execute("INSERT INTO zelDataStore (dsKey, dsValue) VALUES (?, ?)", {key, value});
}

std::int64_t Database::nextMessageId(Zel::Db::Connection& connection) const {
    if (m_firebird)
        return static_cast<std::int64_t>(
            connection.scalar("SELECT GEN_ID(genZelMessageId, 1) FROM RDB$DATABASE"));
    return static_cast<std::int64_t>(connection.scalar("SELECT COALESCE(MAX(id), 0) + 1 FROM zelMessages"));
}

} // namespace ZelHost
