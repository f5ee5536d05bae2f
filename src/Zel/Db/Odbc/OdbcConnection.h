#pragma once

#include <Zel/Db/Connection.h>
#include <memory>

namespace Zel::Db::Odbc {

namespace Detail {
struct Session;
}

// A connection through unixODBC's driver manager (narrow API, UTF-8 text), opened from a DSN-less
// string ("DRIVER=SQLite3;Database=/path/app.db") or a DSN ("DSN=orders;UID=app;PWD=...") with
// SQLDriverConnect, never prompting.
//
// Transactions switch autocommit off for their length and end with SQLEndTran. isAlive() runs
// "SELECT 1", since drivers (psqlODBC among them) go on reporting a connection whose server is gone
// as alive until a statement fails on it.
//
// Column types are what the driver reports, so they differ between drivers:
//   - SQLite3 driver: a column reads as its declared type says. INTEGER, SMALLINT, BIGINT, TINYINT
//     (short), BIT and BOOL, DATE, TIME, DATETIME and TIMESTAMP, BLOB (any name containing it) and
//     the text types map as expected; REAL, FLOAT, DOUBLE and NUMERIC read as double, passed
//     through the driver's 15-digit text, so a double may lose its last digits; DECIMAL reads as
//     text. SQLite keeps no exact decimals. A column without a declared type, and an expression,
//     reads as the type of its value in the first row (integers as int32, widened to int64 for a
//     value that needs it); with StepAPI=1 in the string such columns read as text.
//     INSERT/UPDATE/DELETE ... RETURNING works through query() (and execute()).
//   - psqlODBC: put BoolsAsChar=0 in the string, else booleans read as the text "1"/"0";
//     Protocol=7.4-1 avoids a savepoint round trip around every statement in a transaction.
class ZEL_API OdbcConnection : public Connection {
public:
    OdbcConnection();
    ~OdbcConnection() override;

    // InvalidOperationException when already open; DbException with the driver manager's or
    // driver's text when the connection cannot be made.
    void open(const std::string& connectionString) override;
    void close() noexcept override;
    bool opened() const noexcept override;
    bool isAlive() noexcept override;
    std::string_view backend() const noexcept override { return "odbc"; }

    void begin() override;
    void commit() override;
    void rollback() override;
    bool inTransaction() const noexcept override;

protected:
    std::shared_ptr<Statement> prepare(const std::string& sql) override;

private:
    void setAutocommit(bool on, const char* what);

    std::shared_ptr<Detail::Session> m_session;
    bool m_inTransaction = false;
};

} // namespace Zel::Db::Odbc
