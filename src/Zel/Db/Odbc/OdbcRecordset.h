#pragma once

#include <Zel/Db/Odbc/OdbcStatement.h>
#include <Zel/Db/Recordset.h>
#include <memory>
#include <string>
#include <vector>

namespace Zel::Db::Odbc {

// The rows of an executed OdbcStatement, read with SQLFetch and SQLGetData. A row's values are read
// when first asked for, in column order, and kept until the next row, so that any order of access
// works on drivers that only read columns forward. The statement stays busy until the last row has
// been read or the recordset goes; its cursor is closed then.
class ZEL_API OdbcRecordset : public Recordset {
public:
    // Describes the columns of the statement's current result and moves to the first row.
    explicit OdbcRecordset(std::shared_ptr<OdbcStatement> statement);
    ~OdbcRecordset() override;

    bool eof() const override { return m_eof; }
    bool next() override;
    const std::vector<Column>& columns() const override { return m_columns; }
    Variant value(std::size_t index) override;

private:
    enum class Read : unsigned char {
        Bool,
        Integer,
        Float,
        Double,
        Decimal,
        Date,
        Time,
        Timestamp,
        Text,
        Binary
    };

    void fetch();
    void finish() noexcept;
    Variant read(std::size_t index);
    Variant readBytes(SQLUSMALLINT column, SQLSMALLINT cType);
    [[noreturn]] void fail(const std::string& what);

    std::shared_ptr<OdbcStatement> m_statement;
    std::vector<Column> m_columns;
    std::vector<Read> m_reads;
    std::vector<SQLSMALLINT> m_scales;
    std::vector<Variant> m_values;
    std::size_t m_valuesRead = 0;
    std::string m_buffer;
    bool m_eof = true;
};

} // namespace Zel::Db::Odbc
