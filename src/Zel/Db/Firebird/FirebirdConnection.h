#pragma once

#include <Zel/Db/Connection.h>
#include <memory>

namespace Zel::Db::Firebird {

namespace Detail {
class Session;
}

// A connection through Firebird's client library (its object-oriented API), character set UTF8.
//
// Connection strings:
//   - "/var/lib/app/app.fdb": the embedded engine inside this process, no server and no user
//     needed. The engine (ServerMode=Super) holds the file for this process alone: another process
//     opening it gets "Database already opened with engine instance, incompatible with current".
//   - "dbhost:/srv/app.fdb" or "dbhost/3051:/srv/app.fdb": a Firebird server, with User and
//     Password given in the key=value form below.
//   - "Database=<either of the above>;User=SYSDBA;Password=...;Role=...;Create=1;ForcedWrites=0;
//     PageSize=8192;LockTimeout=5". Create=1 creates a database that does not exist yet (UTF8 by
//     default, PageSize 8192 unless given). ForcedWrites=0|1 switches synchronous writes off or on
//     (new databases have them on: each commit then waits for the disk). LockTimeout is how many
//     seconds a statement waits for a row another transaction holds before it fails with the
//     engine's lock time-out error (default 5; 0 fails at once).
//
// Transactions are read committed. Without begin() each execute() runs in a transaction committed
// before it returns, and each query() in one that its recordset commits when it reaches its end or
// is destroyed. Generators (GEN_ID) are not rolled back with a transaction.
//
// Values follow Connection's rules; besides: CHAR columns keep their padding to the column's
// length, CHAR/VARCHAR in CHARACTER SET OCTETS read as binary, text blobs are returned in the bytes
// they are stored in (UTF8 for a database created here).
class ZEL_API FirebirdConnection : public Connection {
public:
    FirebirdConnection();
    ~FirebirdConnection() override;

    // InvalidOperationException when already open.
    void open(const std::string& connectionString) override;
    void close() noexcept override;
    bool opened() const noexcept override;
    bool isAlive() noexcept override;
    std::string_view backend() const noexcept override { return "firebird"; }

    void begin() override;
    void commit() override;
    void rollback() override;
    bool inTransaction() const noexcept override;

protected:
    std::shared_ptr<Statement> prepare(const std::string& sql) override;

private:
    friend class FirebirdStatement;

    // Frees the cached statements no recordset reads from, before DDL needs their tables.
    void releaseIdleStatements() noexcept { clearStatementCache(); }

    std::shared_ptr<Detail::Session> m_session;
};

} // namespace Zel::Db::Firebird
