#pragma once

#include <Zel/Variant.h>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Db {

// The rows a query returned, read forward only. A fresh recordset stands on its first row (eof()
// when there is none); next() moves to the following row:
//
//     for (auto rows = connection.query("SELECT id, name FROM item"); !rows->eof(); rows->next())
//         use(rows->value(0), rows->value("NAME"));
//
// Column names are matched without regard to ASCII case, since drivers differ in what case they
// return. Values come as Variants: see Connection for what each SQL type becomes.
//
// Lifetime: a recordset reads through its connection's handles. It must not outlive the
// connection, and a recordset still open when its connection closes throws DbException on every
// further read instead of touching freed handles. Not thread-safe: it belongs to the connection's
// thread.
class ZEL_API Recordset {
public:
    struct Column {
        std::string name;
        // The Variant type its non-null values have (Type::String for exact decimals, see
        // Connection). Null where the driver does not say.
        Variant::Type type = Variant::Type::Null;
    };

    virtual ~Recordset();

    virtual bool eof() const = 0;
    // Moves to the next row; false (and eof()) after the last one. Throws DbException past the end.
    virtual bool next() = 0;

    virtual const std::vector<Column>& columns() const = 0;
    std::size_t columnCount() const { return columns().size(); }
    const std::string& columnName(std::size_t index) const;
    Variant::Type columnType(std::size_t index) const;

    // The value in column `index` (0-based) of the current row. Throws DbException at eof() and for
    // an index out of range.
    virtual Variant value(std::size_t index) = 0;
    // The value of the first column of that name (case-insensitive). DbException "Db: unknown
    // column | column=..." when no column has it.
    Variant value(std::string_view name);

    // Index of the first column of that name (case-insensitive), if any.
    std::optional<std::size_t> findColumn(std::string_view name) const;
    // As findColumn, throwing DbException "Db: unknown column | column=%s" instead.
    std::size_t columnIndex(std::string_view name) const;

    // The current row as a map of column name (as the driver spelled it) to value; a name that
    // repeats (SELECT * over a join) keeps its first value.
    Variant row();

    Recordset(const Recordset&) = delete;
    Recordset& operator=(const Recordset&) = delete;

protected:
    Recordset() = default;
};

} // namespace Zel::Db
