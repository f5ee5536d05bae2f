#include <Zel/ArgumentException.h>
#include <Zel/Db/ConnectionDecorator.h>
#include <Zel/Db/Statement.h>
#include <Zel/NotSupportedException.h>

namespace Zel::Db {

ConnectionDecorator::ConnectionDecorator(std::unique_ptr<Connection> inner) : m_inner(std::move(inner)) {
    if (!m_inner) throw ArgumentException("Db: a decorator needs a connection to wrap");
    setStatementCacheCapacity(0);
}

ConnectionDecorator::~ConnectionDecorator() = default;

void ConnectionDecorator::open(const std::string& connectionString) {
    m_inner->open(connectionString);
}
void ConnectionDecorator::close() noexcept {
    m_inner->close();
}
bool ConnectionDecorator::opened() const noexcept {
    return m_inner->opened();
}
bool ConnectionDecorator::isAlive() noexcept {
    return m_inner->isAlive();
}
std::string_view ConnectionDecorator::backend() const noexcept {
    return m_inner->backend();
}

void ConnectionDecorator::begin() {
    m_inner->begin();
}
void ConnectionDecorator::commit() {
    m_inner->commit();
}
void ConnectionDecorator::rollback() {
    m_inner->rollback();
}
bool ConnectionDecorator::inTransaction() const noexcept {
    return m_inner->inTransaction();
}
void ConnectionDecorator::savepoint(const std::string& name) {
    m_inner->savepoint(name);
}
void ConnectionDecorator::releaseSavepoint(const std::string& name) {
    m_inner->releaseSavepoint(name);
}
void ConnectionDecorator::rollbackToSavepoint(const std::string& name) {
    m_inner->rollbackToSavepoint(name);
}

std::int64_t ConnectionDecorator::execute(const Command& command) {
    return m_inner->execute(command);
}

std::unique_ptr<Recordset> ConnectionDecorator::query(const Command& command) {
    return m_inner->query(command);
}

std::int64_t ConnectionDecorator::executeBatch(const Command& command,
                                               const std::vector<std::vector<Variant>>& rows) {
    return m_inner->executeBatch(command, rows);
}

std::shared_ptr<Statement> ConnectionDecorator::prepare(const std::string&) {
    throw NotSupportedException("Db: a decorator passes statements on and prepares none");
}

} // namespace Zel::Db
