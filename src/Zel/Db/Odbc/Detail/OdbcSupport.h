#pragma once

#include <memory>
#include <sql.h>
#include <sqlext.h>
#include <string>
#include <utility>

namespace Zel::Db::Odbc::Detail {

// One ODBC handle of kind `Kind`, freed with the object. Move-only.
template <SQLSMALLINT Kind>
class Handle {
public:
    Handle() noexcept = default;
    explicit Handle(SQLHANDLE handle) noexcept : m_handle(handle) {}
    Handle(Handle&& other) noexcept : m_handle(std::exchange(other.m_handle, SQLHANDLE{})) {}
    Handle& operator=(Handle&& other) noexcept {
        if (this != &other) {
            reset();
            m_handle = std::exchange(other.m_handle, SQLHANDLE{});
        }
        return *this;
    }
    ~Handle() { reset(); }

    SQLHANDLE get() const noexcept { return m_handle; }
    explicit operator bool() const noexcept { return m_handle != SQLHANDLE{}; }

    void reset() noexcept {
        if (m_handle != SQLHANDLE{}) SQLFreeHandle(Kind, std::exchange(m_handle, SQLHANDLE{}));
    }
    // Forgets the handle without freeing it, for a statement handle that SQLDisconnect has already
    // freed along with its connection.
    void abandon() noexcept { m_handle = SQLHANDLE{}; }

    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

private:
    SQLHANDLE m_handle = SQLHANDLE{};
};

using EnvironmentHandle = Handle<SQL_HANDLE_ENV>;
using ConnectionHandle = Handle<SQL_HANDLE_DBC>;
using StatementHandle = Handle<SQL_HANDLE_STMT>;

inline bool succeeded(SQLRETURN result) noexcept {
    return result == SQL_SUCCESS || result == SQL_SUCCESS_WITH_INFO;
}

// The process-wide ODBC 3 environment, made on first use. Every session holds it, so that it
// outlives the last connection handle whatever the order of static destruction.
std::shared_ptr<const EnvironmentHandle> environment();

// What a connection shares with its statements and recordsets. A statement or recordset that
// outlives close() finds `connected` false and throws instead of using handles that SQLDisconnect
// freed; the connection handle itself goes with the last holder.
struct Session {
    Session();
    // Disconnects when the connection was not closed.
    ~Session();

    std::shared_ptr<const EnvironmentHandle> environment;
    ConnectionHandle connection;
    // The statement the connection's isAlive() runs, prepared on first use.
    StatementHandle ping;
    bool connected = false;
    // The SQLite3 driver runs only statements that start with SELECT or WITH as queries.
    bool sqlite = false;

    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
};

// Throws DbException with every diagnostic record of the handle: the texts joined with "; ", the
// first record's SQLSTATE and native code.
[[noreturn]] void throwDiagnostics(SQLSMALLINT kind, SQLHANDLE handle, const std::string& what,
                                   const std::string& sql = {});

} // namespace Zel::Db::Odbc::Detail
