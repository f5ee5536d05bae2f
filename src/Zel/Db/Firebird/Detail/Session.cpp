#include <Zel/Db/Firebird/Detail/Session.h>
#include <Zel/Db/Firebird/FirebirdStatement.h>
#include <algorithm>

namespace Zel::Db::Firebird::Detail {
namespace {

// formatStatus writes one line per message of the vector, the later ones led by '-'.
std::string joinLines(const char* text) {
    std::string joined;
    std::string_view rest(text);
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        std::string_view line = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (!line.empty() && line.front() == '-') line.remove_prefix(1);
        if (line.empty()) continue;
        if (!joined.empty()) joined.append("; ");
        joined.append(line);
    }
    return joined;
}

} // namespace

Session::Session()
    : m_master(Fb::fb_get_master_interface()), m_util(m_master->getUtilInterface()),
      m_statusObject(m_master->getStatus()), m_status(m_statusObject) {
    setLockTimeout(5);
}

Session::~Session() {
    shutdown();
    m_statusObject->dispose();
}

void Session::raise(const char* what, const std::string& sql) {
    throw error(what, sql);
}

DbException Session::error(const char* what, const std::string& sql) {
    char text[2048];
    m_util->formatStatus(text, sizeof text, &m_status);
    const ISC_STATUS* vector = m_status.getErrors();
    char sqlState[6] = {};
    fb_sqlstate(sqlState, vector);
    const std::int64_t code = vector[0] == isc_arg_gds ? static_cast<std::int64_t>(vector[1]) : 0;
    DbException error(what, joinLines(text), sqlState, code, sql);
    m_status.init();
    return error;
}

void Session::requireOpen(const std::string& sql) const {
    if (attachment == nullptr) throw DbException("Db: connection is closed", {}, {}, 0, sql);
}

void Session::setLockTimeout(int seconds) {
    // Read committed sees what others committed at each statement, like the other backends' default.
    // Waiting turns a row locked by an open transaction into a wait that ends when that transaction
    // does; the lock timeout bounds it, so a forgotten transaction elsewhere gives a DbException
    // (lock time-out) instead of a hang. A timeout of 0 does not wait at all.
    m_tpb = {isc_tpb_version3, isc_tpb_write, isc_tpb_read_committed, isc_tpb_rec_version};
    if (seconds <= 0) {
        m_tpb.push_back(isc_tpb_nowait);
        return;
    }
    m_tpb.push_back(isc_tpb_wait);
    m_tpb.push_back(isc_tpb_lock_timeout);
    m_tpb.push_back(4);
    for (int shift = 0; shift < 32; shift += 8)
        m_tpb.push_back(static_cast<unsigned char>(static_cast<unsigned>(seconds) >> shift));
}

Fb::ITransaction* Session::startTransaction(const std::string& sql) {
    requireOpen(sql);
    Fb::ITransaction* started =
        attachment->startTransaction(&m_status, static_cast<unsigned>(m_tpb.size()), m_tpb.data());
    check("Db: cannot start a transaction", sql);
    return started;
}

void Session::commit(Fb::ITransaction*& handle, const std::string& sql) {
    handle->commit(&m_status);
    check("Db: commit failed", sql);
    handle = nullptr;
}

void Session::rollback(Fb::ITransaction*& handle, const std::string& sql) {
    handle->rollback(&m_status);
    check("Db: rollback failed", sql);
    handle = nullptr;
}

void Session::rollbackQuietly(Fb::ITransaction*& handle) noexcept {
    if (handle == nullptr) return;
    handle->rollback(&m_status);
    // A transaction whose connection broke cannot be rolled back; its handle is freed all the same.
    if (failed()) handle->release();
    m_status.init();
    handle = nullptr;
}

void Session::attachStatement(FirebirdStatement* statement) noexcept {
    m_statements.push_back(statement);
}

void Session::detachStatement(FirebirdStatement* statement) noexcept {
    const auto found = std::find(m_statements.begin(), m_statements.end(), statement);
    if (found != m_statements.end()) {
        *found = m_statements.back();
        m_statements.pop_back();
    }
}

void Session::shutdown() noexcept {
    // Cursors and statements go before the transactions they ran in, the transactions before the
    // attachment: the engine refuses to detach with a transaction still open.
    for (FirebirdStatement* statement : m_statements)
        statement->releaseHandles();
    m_statements.clear();
    rollbackQuietly(transaction);
    if (attachment != nullptr) {
        attachment->detach(&m_status);
        if (failed()) attachment->release();
        m_status.init();
        attachment = nullptr;
    }
}

} // namespace Zel::Db::Firebird::Detail
