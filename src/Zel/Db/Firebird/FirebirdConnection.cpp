#include <Zel/Db/Firebird/FirebirdConnection.h>
#include <Zel/NotSupportedException.h>

namespace Zel::Db::Firebird {

FirebirdConnection::FirebirdConnection() = default;
FirebirdConnection::~FirebirdConnection() = default;

void FirebirdConnection::open(const std::string&) {
    throw NotSupportedException("Db: backend not built yet");
}
void FirebirdConnection::close() noexcept {}
bool FirebirdConnection::opened() const noexcept {
    return false;
}
bool FirebirdConnection::isAlive() noexcept {
    return false;
}
void FirebirdConnection::begin() {
    throw NotSupportedException("Db: backend not built yet");
}
void FirebirdConnection::commit() {
    throw NotSupportedException("Db: backend not built yet");
}
void FirebirdConnection::rollback() {
    throw NotSupportedException("Db: backend not built yet");
}
bool FirebirdConnection::inTransaction() const noexcept {
    return false;
}
std::shared_ptr<Statement> FirebirdConnection::prepare(const std::string&) {
    throw NotSupportedException("Db: backend not built yet");
}

} // namespace Zel::Db::Firebird
