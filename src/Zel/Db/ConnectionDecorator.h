#pragma once

#include <Zel/Db/Connection.h>
#include <memory>

namespace Zel::Db {

// A connection that passes every call on to the one it wraps. Derive from it to watch or change
// what goes through (log each statement, count round trips, record SQL in tests) and override only
// the calls of interest.
class ZEL_API ConnectionDecorator : public Connection {
public:
    // The inner connection must not be null.
    explicit ConnectionDecorator(std::unique_ptr<Connection> inner);
    ~ConnectionDecorator() override;

    Connection& inner() noexcept { return *m_inner; }
    const Connection& inner() const noexcept { return *m_inner; }

    void open(const std::string& connectionString) override;
    void close() noexcept override;
    bool opened() const noexcept override;
    bool isAlive() noexcept override;
    std::string_view backend() const noexcept override;

    void begin() override;
    void commit() override;
    void rollback() override;
    bool inTransaction() const noexcept override;
    void savepoint(const std::string& name) override;
    void releaseSavepoint(const std::string& name) override;
    void rollbackToSavepoint(const std::string& name) override;

    using Connection::execute;
    using Connection::query;
    std::int64_t execute(const Command& command) override;
    std::unique_ptr<Recordset> query(const Command& command) override;
    std::int64_t executeBatch(const Command& command, const std::vector<std::vector<Variant>>& rows) override;

protected:
    // Statements are prepared and cached by the inner connection; this one never prepares.
    std::shared_ptr<Statement> prepare(const std::string& sql) override;

private:
    std::unique_ptr<Connection> m_inner;
};

} // namespace Zel::Db
