#pragma once

#include <Zel/Db/Command.h>
#include <Zel/Db/Recordset.h>
#include <Zel/Variant.h>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Db {

class Statement;
namespace Detail {
class StatementCache;
}

// A session with one database, the same for every backend. Connection::create picks the backend
// from the connection string:
//   - "DRIVER=SQLite3;Database=/var/lib/app/app.db", "DSN=orders;UID=app;PWD=..." and any other
//     string naming DRIVER, DSN or FILEDSN: ODBC through unixODBC (narrow API, UTF-8 text);
//   - "/var/lib/app/app.fdb": Firebird's embedded engine in this process, no server;
//     "dbhost:/srv/app.fdb" or "dbhost/3051:/srv/app.fdb": a Firebird server;
//     "Database=/var/lib/app/app.fdb;User=SYSDBA;Password=...;Create=1;ForcedWrites=0" for options
//     (see Firebird::FirebirdConnection).
//
// Without begin() every statement commits on its own. begin() opens a transaction that commit() or
// rollback() ends; savepoints nest inside it.
//
// Values: parameters bind from Variants and columns read into Variants.
//   - null, bool, byte, short, int32, int64, float, double, Date, Time, DateTime, strings of any
//     length (text blobs included) and LongBinary (binary blobs included) round-trip unchanged;
//     maps and vectors bind as their JSON text.
//   - Exact decimals (NUMERIC, DECIMAL) with no fraction digits read as int64 when they fit; every
//     other exact decimal reads as a string holding its exact decimal text ("12.50"), never as a
//     double that could not hold it.
//   - Times and timestamps carry whole seconds in Date, Time and DateTime. A value whose fraction
//     of a second is not zero reads as its exact text ("2026-11-24 10:30:00.1250") instead of
//     being cut to the second.
//   - A value that does not fit its column is the engine's error: DbException, nothing written.
//
// Prepared statements are cached per connection by SQL text (64 by default, the least recently
// used goes), so a statement run again is not prepared again.
//
// Thread safety: one thread uses a connection at a time; a pool hands connections between threads.
// Every failure is a DbException naming the driver's text, SQLSTATE, native code and the SQL.
class ZEL_API Connection {
public:
    virtual ~Connection();

    // Opens a connection of the backend the string names (see above). DbException when it cannot.
    static std::unique_ptr<Connection> create(const std::string& connectionString);

    virtual void open(const std::string& connectionString) = 0;
    // Rolls back an open transaction and releases every handle; recordsets still open on it throw
    // on their next read. Closing a closed connection does nothing.
    virtual void close() noexcept = 0;
    virtual bool opened() const noexcept = 0;
    // Asks the server (or engine) whether the connection still works: false after the server went
    // away, and for a closed connection. Never throws.
    virtual bool isAlive() noexcept = 0;
    // Short name of the backend: "odbc", "firebird", or a decorator's own.
    virtual std::string_view backend() const noexcept = 0;

    // --- transactions ----------------------------------------------------------------------------
    // InvalidOperationException when a transaction is already open or the connection is closed.
    virtual void begin() = 0;
    // InvalidOperationException without an open transaction.
    virtual void commit() = 0;
    virtual void rollback() = 0;
    virtual bool inTransaction() const noexcept = 0;
    // "SAVEPOINT name", "RELEASE SAVEPOINT name", "ROLLBACK TO SAVEPOINT name"; inside a
    // transaction only (InvalidOperationException otherwise).
    virtual void savepoint(const std::string& name);
    virtual void releaseSavepoint(const std::string& name);
    virtual void rollbackToSavepoint(const std::string& name);

    // --- statements ------------------------------------------------------------------------------
    // Rows affected, -1 where the driver cannot tell.
    virtual std::int64_t execute(const Command& command);
    virtual std::unique_ptr<Recordset> query(const Command& command);
    // All or nothing: outside a transaction the batch runs in one of its own.
    virtual std::int64_t executeBatch(const Command& command, const std::vector<std::vector<Variant>>& rows);

    std::int64_t execute(std::string sql, std::vector<Variant> params = {});
    std::unique_ptr<Recordset> query(std::string sql, std::vector<Variant> params = {});
    // The first column of the first row; null when there is no row.
    Variant scalar(std::string sql, std::vector<Variant> params = {});

    std::size_t statementCacheCapacity() const noexcept;
    // 0 turns the cache off; lowering it drops the least recently used statements.
    void setStatementCacheCapacity(std::size_t capacity);
    std::size_t cachedStatementCount() const noexcept;

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

protected:
    Connection();

    // Backends prepare a statement for the text; DbException (with the SQL) when it does not compile.
    virtual std::shared_ptr<Statement> prepare(const std::string& sql) = 0;
    // A prepared statement for the text from the cache, prepared and cached on a miss. While the
    // cached one is busy with an open recordset, a fresh uncached statement is prepared.
    std::shared_ptr<Statement> statement(const std::string& sql);
    // Backends call this when they close, before they release their handles.
    void clearStatementCache() noexcept;

private:
    std::unique_ptr<Detail::StatementCache> m_cache;
};

} // namespace Zel::Db
