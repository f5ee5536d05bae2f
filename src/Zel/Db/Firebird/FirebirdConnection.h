#pragma once

#include <Zel/Db/Connection.h>

namespace Zel::Db::Firebird {

// A connection through Firebird's client library (its object-oriented API). A plain file path runs
// the embedded engine inside this process; "host:path" or "host/port:path" reaches a server.
class ZEL_API FirebirdConnection : public Connection {
public:
    FirebirdConnection();
    ~FirebirdConnection() override;

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
};

} // namespace Zel::Db::Firebird
