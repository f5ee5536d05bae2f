#pragma once

#include <Zel/Db/Statement.h>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Firebird {
class IMessageMetadata;
class IStatement;
class ITransaction;
} // namespace Firebird

namespace Zel::Db::Firebird {

namespace Detail {
class ParameterBinder;
class RowFormat;
class Session;
} // namespace Detail

class FirebirdRecordset;

// A statement prepared by Firebird's engine, made and cached by FirebirdConnection.
//
// A SELECT opens a cursor that its recordset reads (the statement is busy meanwhile). A statement
// without a cursor that still returns values (INSERT/UPDATE/DELETE ... RETURNING, EXECUTE
// PROCEDURE) runs at once and query() hands back its one row; an UPDATE or DELETE ... RETURNING
// that touched no row gives an empty recordset instead of the row of nulls the engine reports.
// Without an open transaction each run gets a transaction of its own: execute() commits it before
// returning, a cursor's recordset when it reaches its end or is destroyed.
//
// execute() returns the engine's count of rows affected, except that an INSERT ... VALUES counts
// one row without asking (it inserts one whenever it succeeds; asking costs about as much as the
// insert) and a SELECT gives -1. DDL first frees the connection's idle cached statements, which
// would otherwise keep their tables in use and make a DROP or ALTER fail.
class ZEL_API FirebirdStatement : public Statement {
public:
    // Prepares `sql`; DbException with the engine's error when it does not compile.
    FirebirdStatement(std::shared_ptr<Detail::Session> session, std::string sql);
    ~FirebirdStatement() override;

    std::int64_t execute(const std::vector<Variant>& params) override;
    std::unique_ptr<Recordset> query(const std::vector<Variant>& params) override;
    bool busy() const noexcept override { return m_reader != nullptr; }

    const std::string& sql() const noexcept { return m_sql; }

private:
    friend class FirebirdRecordset;
    friend class Detail::Session;

    // Binds and runs a statement without a cursor, its output (if any) into m_output. Returns the
    // rows affected when `count` is set, else -1.
    std::int64_t run(const std::vector<Variant>& params, ::Firebird::ITransaction* transaction, bool count);
    // Frees the engine's handles while the connection closes; later calls throw.
    void releaseHandles() noexcept;
    unsigned char* output() noexcept { return reinterpret_cast<unsigned char*>(m_output.data()); }

    std::shared_ptr<Detail::Session> m_session;
    std::string m_sql;
    ::Firebird::IStatement* m_statement = nullptr;
    ::Firebird::IMessageMetadata* m_outputMetadata = nullptr;
    std::unique_ptr<Detail::ParameterBinder> m_binder;
    std::unique_ptr<Detail::RowFormat> m_row;
    std::vector<std::uint64_t> m_output; // 8-byte aligned for the engine's int64 and double fields
    bool m_hasCursor = false;
    bool m_isDdl = false;
    // INSERT ... VALUES: one row affected whenever it succeeds, without asking the engine.
    bool m_insertsOneRow = false;
    // UPDATE or DELETE ... RETURNING: may touch no row.
    bool m_mayReturnNothing = false;
    // The recordset reading this statement's cursor, if any.
    FirebirdRecordset* m_reader = nullptr;
};

} // namespace Zel::Db::Firebird
