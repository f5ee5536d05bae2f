#pragma once

#include <Zel/Db/Recordset.h>
#include <memory>
#include <vector>

namespace Firebird {
class IResultSet;
class ITransaction;
} // namespace Firebird

namespace Zel::Db::Firebird {

class FirebirdStatement;

// The rows of a FirebirdStatement: either the engine's cursor, fetched row by row into the
// statement's output buffer, or the one row a statement without a cursor returned, read at once.
// A cursor that ran in a transaction of its own commits it when it reaches its end or when the
// recordset is destroyed.
class ZEL_API FirebirdRecordset : public Recordset {
public:
    // Reads the cursor's first row. Takes over `cursor` and, when not null, `ownTransaction`.
    FirebirdRecordset(std::shared_ptr<FirebirdStatement> statement, ::Firebird::IResultSet* cursor,
                      ::Firebird::ITransaction* ownTransaction);
    // One row already read (none when `row` is empty).
    FirebirdRecordset(std::shared_ptr<FirebirdStatement> statement, std::vector<Variant> row);
    ~FirebirdRecordset() override;

    bool eof() const override { return m_eof; }
    bool next() override;
    const std::vector<Column>& columns() const override;
    Variant value(std::size_t index) override;

private:
    friend class FirebirdStatement;

    void fetch();
    // Closes the cursor and commits its own transaction; the statement is free again.
    void finish();
    // As finish(), rolling back and swallowing every error.
    void abandon() noexcept;
    void requireOpen() const;

    std::shared_ptr<FirebirdStatement> m_statement;
    ::Firebird::IResultSet* m_cursor = nullptr;
    ::Firebird::ITransaction* m_ownTransaction = nullptr;
    std::vector<Variant> m_row;
    bool m_fromCursor = false;
    bool m_eof = true;
    bool m_closed = false;
};

} // namespace Zel::Db::Firebird
