#include <Zel/ArgumentException.h>
#include <Zel/Db/Command.h>
#include <Zel/Db/Connection.h>
#include <Zel/Db/Recordset.h>

namespace Zel::Db {

Command& Command::setSql(std::string sql) {
    m_sql = std::move(sql);
    m_params.clear();
    m_preparedSql.clear();
    m_preparedParams.clear();
    return *this;
}

Command& Command::setParam(std::size_t index, Variant value) {
    if (index >= m_params.size()) m_params.resize(index + 1);
    m_params[index] = std::move(value);
    return *this;
}

Command& Command::setPreparedForm(std::string sql, std::vector<Variant> params) {
    m_preparedSql = std::move(sql);
    m_preparedParams = std::move(params);
    return *this;
}

Command& Command::addColumn(std::string name, Variant value) {
    m_columns.push_back(Column{std::move(name), std::move(value), {}});
    return *this;
}

Command& Command::addColumnExpression(std::string name, std::string expression) {
    if (expression.empty()) throw ArgumentException("Db: empty column expression | column=" + name);
    m_columns.push_back(Column{std::move(name), Variant(), std::move(expression)});
    return *this;
}

Command& Command::buildInsert(std::string_view table, std::string_view returning) {
    if (m_columns.empty())
        throw ArgumentException("Db: INSERT without columns | table=" + std::string(table));
    std::string sql;
    sql.reserve(32 + table.size() + m_columns.size() * 24);
    sql.append("INSERT INTO ").append(table).append(" (");
    std::string values;
    std::vector<Variant> params;
    params.reserve(m_columns.size());
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        auto& column = m_columns[i];
        if (i > 0) sql.append(", "), values.append(", ");
        sql.append(column.name);
        if (column.expression.empty()) {
            values.push_back('?');
            params.push_back(std::move(column.value));
        } else {
            values.append(column.expression);
        }
    }
    sql.append(") VALUES (").append(values).push_back(')');
    if (!returning.empty()) sql.append(" RETURNING ").append(returning);
    setSql(std::move(sql));
    m_params = std::move(params);
    m_columns.clear();
    return *this;
}

Command& Command::buildUpdate(std::string_view table, std::string_view keyColumn, Variant keyValue) {
    if (m_columns.empty())
        throw ArgumentException("Db: UPDATE without columns | table=" + std::string(table));
    std::string sql;
    sql.reserve(32 + table.size() + m_columns.size() * 16);
    sql.append("UPDATE ").append(table).append(" SET ");
    std::vector<Variant> params;
    params.reserve(m_columns.size() + 1);
    for (std::size_t i = 0; i < m_columns.size(); ++i) {
        auto& column = m_columns[i];
        if (i > 0) sql.append(", ");
        sql.append(column.name).push_back('=');
        if (column.expression.empty()) {
            sql.push_back('?');
            params.push_back(std::move(column.value));
        } else {
            sql.append(column.expression);
        }
    }
    sql.append(" WHERE ").append(keyColumn).append("=?");
    params.push_back(std::move(keyValue));
    setSql(std::move(sql));
    m_params = std::move(params);
    m_columns.clear();
    return *this;
}

std::int64_t Command::execute(Connection& connection) const {
    return connection.execute(*this);
}

std::unique_ptr<Recordset> Command::query(Connection& connection) const {
    return connection.query(*this);
}

Variant Command::scalar(Connection& connection) const {
    auto rows = connection.query(*this);
    if (rows->eof() || rows->columnCount() == 0) return Variant();
    return rows->value(std::size_t{0});
}

std::int64_t Command::executeBatch(Connection& connection,
                                   const std::vector<std::vector<Variant>>& rows) const {
    return connection.executeBatch(*this, rows);
}

} // namespace Zel::Db
