#pragma once

#include <Zel/Variant.h>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Db {

class Connection;
class Recordset;

// One SQL statement with `?` placeholders and the Variants bound to them by position, run on a
// connection given at each call. A Command is a plain value: it holds no handle and may be kept,
// copied and run again; the connection prepares its text once and caches the prepared statement.
//
//     Db::Command insert("INSERT INTO item (id, name) VALUES (?, ?)");
//     insert.bind(7).bind("tea").execute(connection);
//
// The column builder writes INSERT and UPDATE texts from named columns, so that a caller (the
// object mapper) can let each property add its own column:
//
//     Db::Command command;
//     command.addColumnExpression("id", "GEN_ID(genItem,1)").addColumn("name", "tea");
//     command.buildInsert("item", "id");   // INSERT INTO item (id, name) VALUES (GEN_ID(genItem,1), ?)
//     RETURNING id
class ZEL_API Command {
public:
    Command() = default;
    explicit Command(std::string sql) : m_sql(std::move(sql)) {}
    Command(std::string sql, std::vector<Variant> params)
        : m_sql(std::move(sql)), m_params(std::move(params)) {}

    const std::string& sql() const noexcept { return m_sql; }
    // Replaces the text; the parameters and any prepared form are cleared.
    Command& setSql(std::string sql);

    // --- parameters ------------------------------------------------------------------------------
    // Binds the next placeholder. Maps and vectors are bound as their JSON text.
    Command& bind(Variant value) {
        m_params.push_back(std::move(value));
        return *this;
    }
    // Binds placeholder `index` (0-based), growing the list with nulls as needed.
    Command& setParam(std::size_t index, Variant value);
    const std::vector<Variant>& params() const noexcept { return m_params; }
    Command& clearParams() noexcept {
        m_params.clear();
        return *this;
    }

    // The same statement with its literals turned into placeholders. Connections prepare and cache
    // this form instead of sql(), so that texts differing only in a literal ("... WHERE id=7",
    // "... WHERE id=8") share one prepared statement; sql() stays the statement as it was issued
    // (what a log or a recording decorator sees). The caller vouches that both mean the same.
    Command& setPreparedForm(std::string sql, std::vector<Variant> params);
    bool hasPreparedForm() const noexcept { return !m_preparedSql.empty(); }
    const std::string& preparedSql() const noexcept { return m_preparedSql.empty() ? m_sql : m_preparedSql; }
    const std::vector<Variant>& preparedParams() const noexcept {
        return m_preparedSql.empty() ? m_params : m_preparedParams;
    }

    // --- column builder --------------------------------------------------------------------------
    // A column whose value is bound as a parameter.
    Command& addColumn(std::string name, Variant value);
    // A column whose value is an SQL expression written into the text as it stands.
    Command& addColumnExpression(std::string name, std::string expression);
    bool hasColumns() const noexcept { return !m_columns.empty(); }
    std::size_t columnCount() const noexcept { return m_columns.size(); }
    Command& clearColumns() noexcept {
        m_columns.clear();
        return *this;
    }
    // "INSERT INTO t (a, b) VALUES (?, ?)", with " RETURNING c" when `returning` is given. The
    // parameters become the columns' values. ArgumentException without columns.
    Command& buildInsert(std::string_view table, std::string_view returning = {});
    // "UPDATE t SET a=?, b=? WHERE key=?", the key's value bound last. ArgumentException without
    // columns.
    Command& buildUpdate(std::string_view table, std::string_view keyColumn, Variant keyValue);

    // --- running ---------------------------------------------------------------------------------
    // Rows affected (-1 where the driver cannot tell).
    std::int64_t execute(Connection& connection) const;
    std::unique_ptr<Recordset> query(Connection& connection) const;
    // The first column of the first row; null when there is no row.
    Variant scalar(Connection& connection) const;
    // Runs the statement once per row of parameters (the bound parameters are ignored), as one
    // batch where the driver can; returns the rows affected in total (-1 where unknown). All or
    // nothing: outside a transaction the batch runs in one of its own.
    std::int64_t executeBatch(Connection& connection, const std::vector<std::vector<Variant>>& rows) const;

private:
    struct Column {
        std::string name;
        Variant value;
        std::string expression; // written as it stands when not empty
    };

    std::string m_sql;
    std::vector<Variant> m_params;
    std::string m_preparedSql;
    std::vector<Variant> m_preparedParams;
    std::vector<Column> m_columns;
};

} // namespace Zel::Db
