#pragma once

#include <Zel/Db/Connection.h>

namespace Zel::Db::Odbc {

// A connection through unixODBC's driver manager (narrow API, UTF-8 text), opened from a DSN-less
// string ("DRIVER=SQLite3;Database=/path/app.db") or a DSN ("DSN=orders;UID=app;PWD=...").
class ZEL_API OdbcConnection : public Connection {
public:
    OdbcConnection();
    ~OdbcConnection() override;

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
};

} // namespace Zel::Db::Odbc
