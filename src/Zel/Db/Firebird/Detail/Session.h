#pragma once

#include <Zel/Db/DbException.h>
#include <cstdint>
#include <firebird/Interface.h>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Db::Firebird {
class FirebirdConnection;
class FirebirdStatement;
} // namespace Zel::Db::Firebird

namespace Zel::Db::Firebird::Detail {

namespace Fb = ::Firebird;

// What a connection shares with the statements and recordsets it made: the attachment, the open
// transaction and one status vector. Statements and recordsets hold it through a shared_ptr, so it
// outlives a closed connection; once closed, `attachment` is null and every user throws instead of
// touching a freed handle.
class Session {
public:
    Session();
    ~Session();

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    Fb::IMaster* master() const noexcept { return m_master; }
    Fb::IUtil* util() const noexcept { return m_util; }
    // Cleared before each call by the wrappers of the interface methods.
    Fb::CheckStatusWrapper* status() noexcept { return &m_status; }
    bool failed() const noexcept { return (m_status.getState() & Fb::IStatus::STATE_ERRORS) != 0; }

    // Throws DbException with the status vector's parts when the last call failed.
    void check(const char* what, const std::string& sql = {}) {
        if (failed()) raise(what, sql);
    }
    [[noreturn]] void raise(const char* what, const std::string& sql);
    // The DbException for the failed last call, without throwing it, for callers that must release
    // handles before they throw. Clears the status.
    DbException error(const char* what, const std::string& sql);
    // DbException "Db: connection is closed" unless attached.
    void requireOpen(const std::string& sql) const;

    // A transaction with this connection's parameters (read committed, waiting at most the lock
    // timeout). commit/rollback release the handle and null the pointer; the quiet forms never throw.
    Fb::ITransaction* startTransaction(const std::string& sql);
    void commit(Fb::ITransaction*& handle, const std::string& sql);
    void rollback(Fb::ITransaction*& handle, const std::string& sql);
    void rollbackQuietly(Fb::ITransaction*& handle) noexcept;
    void setLockTimeout(int seconds);

    // Statements register themselves so that close() can free their handles first.
    void attachStatement(FirebirdStatement* statement) noexcept;
    void detachStatement(FirebirdStatement* statement) noexcept;
    // Frees every statement's handles, rolls back and detaches. Never throws.
    void shutdown() noexcept;

    Fb::IAttachment* attachment = nullptr;
    // The transaction begin() opened; null in autocommit.
    Fb::ITransaction* transaction = nullptr;
    // Null once the connection is gone or closed.
    FirebirdConnection* connection = nullptr;

private:
    Fb::IMaster* m_master;
    Fb::IUtil* m_util;
    Fb::IStatus* m_statusObject;
    Fb::CheckStatusWrapper m_status;
    std::vector<unsigned char> m_tpb;
    std::vector<FirebirdStatement*> m_statements;
};

} // namespace Zel::Db::Firebird::Detail
