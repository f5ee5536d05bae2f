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
// Drivers differ in the types they report: the SQLite3 driver names a column's type after its
// declared type (an expression or a column declared without a known type reads as text), and it
// keeps no exact decimals, so NUMERIC columns read back what SQLite stored.
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
