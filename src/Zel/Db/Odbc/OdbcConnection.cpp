#include <Zel/Db/Odbc/OdbcConnection.h>
#include <Zel/NotSupportedException.h>

namespace Zel::Db::Odbc {

OdbcConnection::OdbcConnection() = default;
OdbcConnection::~OdbcConnection() = default;

void OdbcConnection::open(const std::string&) {
    throw NotSupportedException("Db: backend not built yet");
}
void OdbcConnection::close() noexcept {}
bool OdbcConnection::opened() const noexcept {
    return false;
}
bool OdbcConnection::isAlive() noexcept {
    return false;
}
void OdbcConnection::begin() {
    throw NotSupportedException("Db: backend not built yet");
}
void OdbcConnection::commit() {
    throw NotSupportedException("Db: backend not built yet");
}
void OdbcConnection::rollback() {
    throw NotSupportedException("Db: backend not built yet");
}
bool OdbcConnection::inTransaction() const noexcept {
    return false;
}
std::shared_ptr<Statement> OdbcConnection::prepare(const std::string&) {
    throw NotSupportedException("Db: backend not built yet");
}

} // namespace Zel::Db::Odbc
