#include <Zel/Db/Connection.h>
#include <Zel/Db/DbException.h>
#include <Zel/Db/Detail/ConnectionString.h>
#include <Zel/Db/Detail/StatementCache.h>
#include <Zel/Db/Firebird/FirebirdConnection.h>
#include <Zel/Db/Odbc/OdbcConnection.h>
#include <Zel/Db/Statement.h>
#include <Zel/InvalidOperationException.h>

namespace Zel::Db {

Connection::Connection() : m_cache(std::make_unique<Detail::StatementCache>(64)) {}

Connection::~Connection() = default;

std::unique_ptr<Connection> Connection::create(const std::string& connectionString) {
    std::unique_ptr<Connection> connection;
    if (Detail::ConnectionString::isOdbc(connectionString))
        connection = std::make_unique<Odbc::OdbcConnection>();
    else
        connection = std::make_unique<Firebird::FirebirdConnection>();
    connection->open(connectionString);
    return connection;
}

void Connection::savepoint(const std::string& name) {
    if (!inTransaction()) ZEL_THROW_INVALID_OPERATION();
    execute("SAVEPOINT " + name);
}

void Connection::releaseSavepoint(const std::string& name) {
    if (!inTransaction()) ZEL_THROW_INVALID_OPERATION();
    execute("RELEASE SAVEPOINT " + name);
}

void Connection::rollbackToSavepoint(const std::string& name) {
    if (!inTransaction()) ZEL_THROW_INVALID_OPERATION();
    execute("ROLLBACK TO SAVEPOINT " + name);
}

std::int64_t Connection::execute(const Command& command) {
    return statement(command.preparedSql())->execute(command.preparedParams());
}

std::unique_ptr<Recordset> Connection::query(const Command& command) {
    return statement(command.preparedSql())->query(command.preparedParams());
}

std::int64_t Connection::executeBatch(const Command& command, const std::vector<std::vector<Variant>>& rows) {
    if (rows.empty()) return 0;
    const auto prepared = statement(command.preparedSql());
    if (inTransaction()) return prepared->executeBatch(rows);
    // A batch is all or nothing: outside a transaction it gets one of its own, so a bad row does not
    // leave the rows before it committed (and the rows share one commit instead of one each).
    begin();
    try {
        const std::int64_t affected = prepared->executeBatch(rows);
        commit();
        return affected;
    } catch (...) {
        try {
            rollback();
        } catch (...) {
            // The batch's own failure is the one worth reporting.
        }
        throw;
    }
}

std::int64_t Connection::execute(std::string sql, std::vector<Variant> params) {
    return execute(Command(std::move(sql), std::move(params)));
}

std::unique_ptr<Recordset> Connection::query(std::string sql, std::vector<Variant> params) {
    return query(Command(std::move(sql), std::move(params)));
}

Variant Connection::scalar(std::string sql, std::vector<Variant> params) {
    return Command(std::move(sql), std::move(params)).scalar(*this);
}

std::size_t Connection::statementCacheCapacity() const noexcept {
    return m_cache->capacity();
}

void Connection::setStatementCacheCapacity(std::size_t capacity) {
    m_cache->setCapacity(capacity);
}

std::size_t Connection::cachedStatementCount() const noexcept {
    return m_cache->size();
}

std::shared_ptr<Statement> Connection::statement(const std::string& sql) {
    if (!opened()) throw DbException("Db: connection is not open", {}, {}, 0, sql);
    if (auto cached = m_cache->find(sql)) {
        if (!cached->busy()) return cached;
        return prepare(sql);
    }
    auto prepared = prepare(sql);
    m_cache->insert(sql, prepared);
    return prepared;
}

void Connection::clearStatementCache() noexcept {
    m_cache->clear();
}

} // namespace Zel::Db
