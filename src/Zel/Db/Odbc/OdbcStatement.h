#pragma once

#include <Zel/Db/Odbc/Detail/OdbcSupport.h>
#include <Zel/Db/Statement.h>
#include <memory>
#include <string>
#include <vector>

namespace Zel::Db::Odbc {

// A statement prepared on an ODBC connection, its parameters bound from Variants by position.
//
// The bound buffers live in the statement and are bound once: a later execution with values of the
// same types only writes the values, which keeps the per-row path of an insert loop free of
// allocations and of SQLBindParameter calls. executeBatch sends the rows as parameter arrays where
// the driver takes them and the rows agree on each column's type, else it runs them one by one.
class ZEL_API OdbcStatement : public Statement {
public:
    // Prepares `sql` on the session's connection; DbException (with the SQL) when it does not compile.
    OdbcStatement(std::shared_ptr<Detail::Session> session, std::string sql);
    ~OdbcStatement() override;

    std::int64_t execute(const std::vector<Variant>& params) override;
    std::unique_ptr<Recordset> query(const std::vector<Variant>& params) override;
    std::int64_t executeBatch(const std::vector<std::vector<Variant>>& rows) override;
    bool busy() const noexcept override { return m_busy; }

    const std::string& sql() const noexcept { return m_sql; }
    SQLHSTMT handle() const noexcept { return m_handle.get(); }
    // DbException "Db: connection is not open" once the connection has closed.
    void requireConnected() const;
    // For the recordset reading from this statement.
    void setBusy(bool busy) noexcept { m_busy = busy; }
    // Closes the open cursor, if any, and frees the statement for the next execution.
    void closeCursor() noexcept;

private:
    // One bound parameter: the buffer the driver reads and what it was bound as.
    struct Parameter {
        SQLSMALLINT cType = 0; // 0 until bound
        SQLSMALLINT sqlType = 0;
        SQLULEN columnSize = 0;
        SQLSMALLINT digits = 0;
        SQLPOINTER boundData = nullptr;
        SQLLEN boundLength = 0;
        SQLLEN indicator = 0;
        union {
            unsigned char u8;
            SQLSMALLINT i16;
            SQLINTEGER i32;
            SQLBIGINT i64;
            SQLREAL f;
            SQLDOUBLE d;
            SQL_DATE_STRUCT date;
            SQL_TIME_STRUCT time;
            SQL_TIMESTAMP_STRUCT timestamp;
        } value{};
        std::string bytes; // text, JSON and binary values
    };

    // One column of a parameter array.
    struct ArrayColumn {
        std::vector<char> data;
        std::vector<SQLLEN> indicators;
    };

    struct NullType {
        SQLSMALLINT sqlType = SQL_VARCHAR;
        SQLULEN columnSize = 1;
        SQLSMALLINT digits = 0;
    };

    void checkCount(std::size_t given) const;
    void bind(const std::vector<Variant>& params);
    void bindOne(SQLUSMALLINT index, const Variant& value);
    // What a null goes to the driver as: the type SQLDescribeParam reports, where it can tell.
    const NullType& nullType(SQLUSMALLINT index);
    // Runs SQLExecute; throws on failure after closing the cursor.
    SQLRETURN run();
    std::int64_t rowCount();
    bool sendArrays(const std::vector<std::vector<Variant>>& rows, std::size_t first, std::size_t count,
                    std::int64_t& total);

    std::shared_ptr<Detail::Session> m_session;
    Detail::StatementHandle m_handle;
    std::string m_sql;
    std::vector<Parameter> m_params;
    std::vector<NullType> m_nullTypes;
    std::vector<bool> m_nullTypeKnown;
    std::vector<ArrayColumn> m_arrays;
    std::vector<SQLUSMALLINT> m_paramStatus;
    bool m_arraysRefused = false;
    // The statement returns rows that execute() must read for it to finish.
    bool m_drain = false;
    bool m_busy = false;
};

} // namespace Zel::Db::Odbc
