#include <Zel/Db/DbException.h>
#include <Zel/Db/Odbc/Detail/OdbcSupport.h>
#include <Zel/Db/Odbc/OdbcConnection.h>
#include <Zel/Db/Odbc/OdbcStatement.h>
#include <Zel/InvalidOperationException.h>

namespace Zel::Db::Odbc {

OdbcConnection::OdbcConnection() = default;

OdbcConnection::~OdbcConnection() {
    close();
}

void OdbcConnection::open(const std::string& connectionString) {
    if (m_session) ZEL_THROW_INVALID_OPERATION();
    auto session = std::make_shared<Detail::Session>();
    SQLHENV environment = session->environment->get();
    SQLHDBC handle = SQL_NULL_HDBC;
    if (!Detail::succeeded(SQLAllocHandle(SQL_HANDLE_DBC, environment, &handle)))
        Detail::throwDiagnostics(SQL_HANDLE_ENV, environment, "Db: cannot allocate a connection");
    session->connection = Detail::ConnectionHandle(handle);
    // The string is never part of a message: it may hold a password.
    SQLCHAR completed[1024];
    SQLSMALLINT completedLength = 0;
    std::string text = connectionString;
    if (!Detail::succeeded(SQLDriverConnect(handle, nullptr, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS,
                                            completed, sizeof completed, &completedLength,
                                            SQL_DRIVER_NOPROMPT)))
        Detail::throwDiagnostics(SQL_HANDLE_DBC, handle, "Db: cannot connect");
    session->connected = true;
    SQLCHAR dbms[64] = {};
    SQLSMALLINT dbmsLength = 0;
    if (Detail::succeeded(SQLGetInfo(handle, SQL_DBMS_NAME, dbms, sizeof dbms, &dbmsLength)))
        session->sqlite = std::string_view(reinterpret_cast<const char*>(dbms)) == "SQLite";
    m_session = std::move(session);
    m_inTransaction = false;
}

void OdbcConnection::close() noexcept {
    if (!m_session) return;
    clearStatementCache();
    SQLHDBC handle = m_session->connection.get();
    if (m_inTransaction) {
        SQLEndTran(SQL_HANDLE_DBC, handle, SQL_ROLLBACK);
        SQLSetConnectAttr(handle, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON), 0);
        m_inTransaction = false;
    }
    m_session->ping.reset();
    // Frees every statement still allocated on the connection; statements and recordsets that
    // outlive this see `connected` false and leave their handles alone.
    SQLDisconnect(handle);
    m_session->connected = false;
    m_session.reset();
}

bool OdbcConnection::opened() const noexcept {
    return m_session != nullptr;
}

bool OdbcConnection::isAlive() noexcept {
    if (!m_session) return false;
    SQLHDBC handle = m_session->connection.get();
    SQLUINTEGER dead = SQL_CD_FALSE;
    if (Detail::succeeded(SQLGetConnectAttr(handle, SQL_ATTR_CONNECTION_DEAD, &dead, 0, nullptr)) &&
        dead == SQL_CD_TRUE)
        return false;
    auto& ping = m_session->ping;
    if (!ping) {
        SQLHSTMT allocated = SQL_NULL_HSTMT;
        if (!Detail::succeeded(SQLAllocHandle(SQL_HANDLE_STMT, handle, &allocated))) return false;
        Detail::StatementHandle prepared(allocated);
        char text[] = "SELECT 1";
        if (!Detail::succeeded(SQLPrepare(allocated, reinterpret_cast<SQLCHAR*>(text), SQL_NTS)))
            return false;
        ping = std::move(prepared);
    }
    const bool alive = Detail::succeeded(SQLExecute(ping.get()));
    SQLFreeStmt(ping.get(), SQL_CLOSE);
    return alive;
}

void OdbcConnection::setAutocommit(bool on, const char* what) {
    SQLHDBC handle = m_session->connection.get();
    const auto value = on ? SQL_AUTOCOMMIT_ON : SQL_AUTOCOMMIT_OFF;
    if (!Detail::succeeded(
            SQLSetConnectAttr(handle, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(value), 0)))
        Detail::throwDiagnostics(SQL_HANDLE_DBC, handle, what);
}

void OdbcConnection::begin() {
    if (!m_session || m_inTransaction) ZEL_THROW_INVALID_OPERATION();
    setAutocommit(false, "Db: cannot begin a transaction");
    m_inTransaction = true;
}

void OdbcConnection::commit() {
    if (!m_session || !m_inTransaction) ZEL_THROW_INVALID_OPERATION();
    SQLHDBC handle = m_session->connection.get();
    // A commit that fails leaves the transaction open, for the caller to roll back.
    if (!Detail::succeeded(SQLEndTran(SQL_HANDLE_DBC, handle, SQL_COMMIT)))
        Detail::throwDiagnostics(SQL_HANDLE_DBC, handle, "Db: commit failed");
    m_inTransaction = false;
    setAutocommit(true, "Db: cannot end a transaction");
}

void OdbcConnection::rollback() {
    if (!m_session || !m_inTransaction) ZEL_THROW_INVALID_OPERATION();
    SQLHDBC handle = m_session->connection.get();
    m_inTransaction = false;
    const SQLRETURN result = SQLEndTran(SQL_HANDLE_DBC, handle, SQL_ROLLBACK);
    if (!Detail::succeeded(result)) {
        try {
            Detail::throwDiagnostics(SQL_HANDLE_DBC, handle, "Db: rollback failed");
        } catch (...) {
            SQLSetConnectAttr(handle, SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON),
                              0);
            throw;
        }
    }
    setAutocommit(true, "Db: cannot end a transaction");
}

bool OdbcConnection::inTransaction() const noexcept {
    return m_inTransaction;
}

std::shared_ptr<Statement> OdbcConnection::prepare(const std::string& sql) {
    if (!m_session) throw DbException("Db: connection is not open", {}, {}, 0, sql);
    return std::make_shared<OdbcStatement>(m_session, sql);
}

} // namespace Zel::Db::Odbc
