#include <Zel/Db/DbException.h>
#include <Zel/Db/Odbc/OdbcRecordset.h>
#include <Zel/Db/Odbc/OdbcStatement.h>
#include <algorithm>
#include <cctype>
#include <cstring>

namespace Zel::Db::Odbc {
namespace {

// Texts longer than this go as SQL_LONGVARCHAR, so that drivers that size a VARCHAR parameter take
// them whole.
constexpr std::size_t longTextFrom = 4000;
// A parameter array holds at most this many bytes; larger batches go in several arrays.
constexpr std::size_t arrayBudget = 16u << 20;
// Array buffers up to this size stay with the statement between batches.
constexpr std::size_t keptArrayBytes = 1u << 20;

struct SqlKind {
    SQLSMALLINT cType;
    SQLSMALLINT sqlType;
    SQLULEN columnSize;
    std::size_t size; // bytes of a fixed-size value, 0 for text and binary
};

bool isTextual(Variant::Type type) noexcept {
    return type == Variant::Type::String || type == Variant::Type::Map || type == Variant::Type::Vector;
}

// The C and SQL types a non-null value of `type` binds as.
SqlKind kindOf(Variant::Type type, std::size_t length) {
    switch (type) {
    case Variant::Type::Bool:
        return {SQL_C_BIT, SQL_BIT, 1, sizeof(unsigned char)};
    case Variant::Type::Byte:
        return {SQL_C_UTINYINT, SQL_TINYINT, 3, sizeof(unsigned char)};
    case Variant::Type::Short:
        return {SQL_C_SSHORT, SQL_SMALLINT, 5, sizeof(SQLSMALLINT)};
    case Variant::Type::Int32:
        return {SQL_C_SLONG, SQL_INTEGER, 10, sizeof(SQLINTEGER)};
    case Variant::Type::Int64:
        return {SQL_C_SBIGINT, SQL_BIGINT, 19, sizeof(SQLBIGINT)};
    case Variant::Type::Float:
        return {SQL_C_FLOAT, SQL_REAL, 7, sizeof(SQLREAL)};
    case Variant::Type::Double:
        return {SQL_C_DOUBLE, SQL_DOUBLE, 15, sizeof(SQLDOUBLE)};
    case Variant::Type::Date:
        return {SQL_C_TYPE_DATE, SQL_TYPE_DATE, 10, sizeof(SQL_DATE_STRUCT)};
    case Variant::Type::Time:
        return {SQL_C_TYPE_TIME, SQL_TYPE_TIME, 8, sizeof(SQL_TIME_STRUCT)};
    case Variant::Type::Timestamp:
        return {SQL_C_TYPE_TIMESTAMP, SQL_TYPE_TIMESTAMP, 19, sizeof(SQL_TIMESTAMP_STRUCT)};
    case Variant::Type::String:
    case Variant::Type::Map:
    case Variant::Type::Vector:
        return {SQL_C_CHAR, length > longTextFrom ? SQLSMALLINT{SQL_LONGVARCHAR} : SQLSMALLINT{SQL_VARCHAR},
                std::max<SQLULEN>(length, 1), 0};
    case Variant::Type::Binary:
        return {SQL_C_BINARY, SQL_LONGVARBINARY, std::max<SQLULEN>(length, 1), 0};
    default:
        throw DbException("Db: parameter type not supported | type=" + Variant::typeToString(type));
    }
}

// Writes a fixed-size value where kindOf(value.type()) says it goes.
void storeFixed(void* target, const Variant& value) {
    switch (value.type()) {
    case Variant::Type::Bool:
        *static_cast<unsigned char*>(target) = static_cast<bool>(value) ? 1 : 0;
        break;
    case Variant::Type::Byte: {
        std::int64_t size = 0;
        *static_cast<unsigned char*>(target) = *static_cast<const unsigned char*>(value._rawData(&size));
        break;
    }
    case Variant::Type::Short:
        *static_cast<SQLSMALLINT*>(target) = static_cast<short>(value);
        break;
    case Variant::Type::Int32:
        *static_cast<SQLINTEGER*>(target) = static_cast<int>(value);
        break;
    case Variant::Type::Int64:
        *static_cast<SQLBIGINT*>(target) = static_cast<std::int64_t>(value);
        break;
    case Variant::Type::Float:
        *static_cast<SQLREAL*>(target) = static_cast<float>(value);
        break;
    case Variant::Type::Double:
        *static_cast<SQLDOUBLE*>(target) = static_cast<double>(value);
        break;
    case Variant::Type::Date: {
        const Date date = value.date();
        *static_cast<SQL_DATE_STRUCT*>(target) = {static_cast<SQLSMALLINT>(date.year()),
                                                  static_cast<SQLUSMALLINT>(date.month()),
                                                  static_cast<SQLUSMALLINT>(date.day())};
        break;
    }
    case Variant::Type::Time: {
        const Time time = value.time();
        *static_cast<SQL_TIME_STRUCT*>(target) = {static_cast<SQLUSMALLINT>(time.hour()),
                                                  static_cast<SQLUSMALLINT>(time.minute()),
                                                  static_cast<SQLUSMALLINT>(time.second())};
        break;
    }
    case Variant::Type::Timestamp: {
        const DateTime stamp = value.dateTime();
        *static_cast<SQL_TIMESTAMP_STRUCT*>(target) = {static_cast<SQLSMALLINT>(stamp.year()),
                                                       static_cast<SQLUSMALLINT>(stamp.month()),
                                                       static_cast<SQLUSMALLINT>(stamp.day()),
                                                       static_cast<SQLUSMALLINT>(stamp.hour()),
                                                       static_cast<SQLUSMALLINT>(stamp.minute()),
                                                       static_cast<SQLUSMALLINT>(stamp.second()),
                                                       0};
        break;
    }
    default:
        break;
    }
}

// The bytes of a text or binary value; maps and vectors as their JSON text (kept in `json`).
std::string_view bytesOf(const Variant& value, std::string& json) {
    if (value.type() == Variant::Type::Map || value.type() == Variant::Type::Vector) {
        json = value.toJson();
        return json;
    }
    std::int64_t size = 0;
    const void* data = value._rawData(&size);
    return {static_cast<const char*>(data), static_cast<std::size_t>(size)};
}

bool startsWithWord(std::string_view text, std::string_view word) noexcept {
    if (text.size() < word.size()) return false;
    for (std::size_t i = 0; i < word.size(); ++i)
        if ((text[i] | 0x20) != word[i]) return false;
    return text.size() == word.size() ||
           !(std::isalnum(static_cast<unsigned char>(text[word.size()])) || text[word.size()] == '_');
}

// Whether `sql` is an INSERT, UPDATE, DELETE or REPLACE with a RETURNING clause.
bool returnsRows(std::string_view sql) noexcept {
    while (!sql.empty() && std::isspace(static_cast<unsigned char>(sql.front())))
        sql.remove_prefix(1);
    if (!startsWithWord(sql, "insert") && !startsWithWord(sql, "update") && !startsWithWord(sql, "delete") &&
        !startsWithWord(sql, "replace"))
        return false;
    for (std::size_t i = 1; i < sql.size(); ++i) {
        const unsigned char before = static_cast<unsigned char>(sql[i - 1]);
        if ((std::isalnum(before) || before == '_') || !startsWithWord(sql.substr(i), "returning")) continue;
        return true;
    }
    return false;
}

} // namespace

OdbcStatement::OdbcStatement(std::shared_ptr<Detail::Session> session, std::string sql)
    : m_session(std::move(session)), m_sql(std::move(sql)) {
    requireConnected();
    SQLHDBC connection = m_session->connection.get();
    SQLHSTMT handle = SQL_NULL_HSTMT;
    if (!Detail::succeeded(SQLAllocHandle(SQL_HANDLE_STMT, connection, &handle)))
        Detail::throwDiagnostics(SQL_HANDLE_DBC, connection, "Db: cannot allocate a statement", m_sql);
    m_handle = Detail::StatementHandle(handle);
    std::string text = m_sql;
    // The SQLite3 driver returns the rows of a statement only when it starts with SELECT or WITH;
    // SQLite takes a WITH clause before any DML, so a RETURNING clause gets one.
    if (m_session->sqlite && returnsRows(m_sql)) {
        text.insert(0, "WITH zel_returning AS (SELECT 1) ");
        m_drain = true;
    }
    if (!Detail::succeeded(SQLPrepare(handle, reinterpret_cast<SQLCHAR*>(text.data()),
                                      static_cast<SQLINTEGER>(text.size()))))
        Detail::throwDiagnostics(SQL_HANDLE_STMT, handle, "Db: cannot prepare the statement", m_sql);
    SQLSMALLINT count = 0;
    if (!Detail::succeeded(SQLNumParams(handle, &count)))
        Detail::throwDiagnostics(SQL_HANDLE_STMT, handle, "Db: cannot count the parameters", m_sql);
    m_params.resize(static_cast<std::size_t>(count));
    m_nullTypes.resize(m_params.size());
    m_nullTypeKnown.assign(m_params.size(), false);
}

OdbcStatement::~OdbcStatement() {
    // SQLDisconnect freed the handle when the connection closed first.
    if (!m_session->connected) m_handle.abandon();
}

void OdbcStatement::requireConnected() const {
    if (!m_session->connected) throw DbException("Db: connection is not open", {}, {}, 0, m_sql);
}

void OdbcStatement::closeCursor() noexcept {
    if (m_session->connected) SQLFreeStmt(m_handle.get(), SQL_CLOSE);
}

void OdbcStatement::checkCount(std::size_t given) const {
    if (given != m_params.size())
        throw DbException("Db: wrong number of parameters | expected=" + std::to_string(m_params.size()) +
                              " | given=" + std::to_string(given),
                          {}, {}, 0, m_sql);
}

const OdbcStatement::NullType& OdbcStatement::nullType(SQLUSMALLINT index) {
    if (!m_nullTypeKnown[index]) {
        NullType& type = m_nullTypes[index];
        SQLSMALLINT sqlType = 0, digits = 0, nullable = 0;
        SQLULEN size = 0;
        if (Detail::succeeded(SQLDescribeParam(m_handle.get(), static_cast<SQLUSMALLINT>(index + 1), &sqlType,
                                               &size, &digits, &nullable)) &&
            sqlType != SQL_UNKNOWN_TYPE) {
            type = {sqlType, std::max<SQLULEN>(size, 1), digits};
        }
        m_nullTypeKnown[index] = true;
    }
    return m_nullTypes[index];
}

void OdbcStatement::bindOne(SQLUSMALLINT index, const Variant& value) {
    Parameter& param = m_params[index];
    SQLSMALLINT cType, sqlType, digits = 0;
    SQLULEN columnSize;
    SQLPOINTER data;
    SQLLEN length = 0;
    const Variant::Type type = value.type();
    if (type == Variant::Type::Null) {
        param.indicator = SQL_NULL_DATA;
        // A null fits whatever the parameter was bound as before.
        if (param.cType != 0) return;
        const NullType& null = nullType(index);
        if (param.bytes.empty()) param.bytes.resize(1);
        cType = SQL_C_CHAR, sqlType = null.sqlType, columnSize = null.columnSize, digits = null.digits;
        data = param.bytes.data(), length = 1;
    } else if (type == Variant::Type::Binary || isTextual(type)) {
        std::string json;
        const std::string_view bytes = bytesOf(value, json);
        // Sized to at least one byte so that an empty value still has an address to bind.
        if (param.bytes.size() < bytes.size() || param.bytes.empty())
            param.bytes.resize(
                std::max<std::size_t>(bytes.size(), std::max<std::size_t>(param.bytes.capacity(), 1)));
        if (!bytes.empty()) std::memcpy(param.bytes.data(), bytes.data(), bytes.size());
        param.indicator = static_cast<SQLLEN>(bytes.size());
        const SqlKind kind = kindOf(type, param.bytes.size());
        cType = kind.cType, sqlType = kind.sqlType, columnSize = kind.columnSize;
        // The kind of a long text follows the value's own length, not the buffer's.
        if (cType == SQL_C_CHAR) sqlType = bytes.size() > longTextFrom ? SQL_LONGVARCHAR : SQL_VARCHAR;
        data = param.bytes.data(), length = static_cast<SQLLEN>(param.bytes.size());
    } else {
        const SqlKind kind = kindOf(type, 0);
        storeFixed(&param.value, value);
        param.indicator = static_cast<SQLLEN>(kind.size);
        cType = kind.cType, sqlType = kind.sqlType, columnSize = kind.columnSize;
        data = &param.value, length = static_cast<SQLLEN>(kind.size);
    }
    if (param.cType == cType && param.sqlType == sqlType && param.columnSize == columnSize &&
        param.digits == digits && param.boundData == data && param.boundLength == length)
        return;
    if (!Detail::succeeded(SQLBindParameter(m_handle.get(), static_cast<SQLUSMALLINT>(index + 1),
                                            SQL_PARAM_INPUT, cType, sqlType, columnSize, digits, data, length,
                                            &param.indicator))) {
        param.cType = 0;
        Detail::throwDiagnostics(SQL_HANDLE_STMT, m_handle.get(), "Db: cannot bind a parameter", m_sql);
    }
    param.cType = cType, param.sqlType = sqlType, param.columnSize = columnSize, param.digits = digits;
    param.boundData = data, param.boundLength = length;
}

void OdbcStatement::bind(const std::vector<Variant>& params) {
    checkCount(params.size());
    for (std::size_t i = 0; i < params.size(); ++i)
        bindOne(static_cast<SQLUSMALLINT>(i), params[i]);
}

SQLRETURN OdbcStatement::run() {
    const SQLRETURN result = SQLExecute(m_handle.get());
    if (Detail::succeeded(result) || result == SQL_NO_DATA) return result;
    try {
        Detail::throwDiagnostics(SQL_HANDLE_STMT, m_handle.get(), "Db: statement failed", m_sql);
    } catch (...) {
        SQLFreeStmt(m_handle.get(), SQL_CLOSE);
        throw;
    }
}

std::int64_t OdbcStatement::rowCount() {
    SQLLEN count = -1;
    if (!Detail::succeeded(SQLRowCount(m_handle.get(), &count))) return -1;
    return count;
}

std::int64_t OdbcStatement::execute(const std::vector<Variant>& params) {
    requireConnected();
    bind(params);
    const std::int64_t count = run() == SQL_NO_DATA ? 0 : rowCount();
    if (m_drain)
        while (Detail::succeeded(SQLFetch(m_handle.get()))) {
        }
    SQLFreeStmt(m_handle.get(), SQL_CLOSE);
    return count;
}

std::unique_ptr<Recordset> OdbcStatement::query(const std::vector<Variant>& params) {
    requireConnected();
    bind(params);
    run();
    return std::make_unique<OdbcRecordset>(std::static_pointer_cast<OdbcStatement>(shared_from_this()));
}

std::int64_t OdbcStatement::executeBatch(const std::vector<std::vector<Variant>>& rows) {
    requireConnected();
    for (const auto& row : rows)
        checkCount(row.size());
    if (rows.size() < 2 || m_params.empty() || m_arraysRefused) return Statement::executeBatch(rows);

    // Arrays take one C type per column: rows that mix types in a column (nulls aside) run one by one.
    std::vector<Variant::Type> types(m_params.size(), Variant::Type::Null);
    std::vector<std::size_t> widths(m_params.size(), 0);
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            const Variant::Type type = row[i].type();
            if (type == Variant::Type::Null) continue;
            if (types[i] == Variant::Type::Null)
                types[i] = type;
            else if (types[i] != type && !(isTextual(types[i]) && isTextual(type)))
                return Statement::executeBatch(rows);
            if (type == Variant::Type::Map || type == Variant::Type::Vector ||
                type == Variant::Type::Reserved)
                return Statement::executeBatch(rows);
            if (type == Variant::Type::String || type == Variant::Type::Binary) {
                std::int64_t size = 0;
                row[i]._rawData(&size);
                widths[i] = std::max(widths[i], static_cast<std::size_t>(size));
            }
        }
    }
    std::size_t rowBytes = 0;
    for (std::size_t i = 0; i < types.size(); ++i) {
        const Variant::Type type = types[i];
        if (type == Variant::Type::Null)
            widths[i] = 1;
        else if (type == Variant::Type::String)
            widths[i] += 1; // the terminator SQL_C_CHAR arrays are laid out with
        else if (type == Variant::Type::Binary)
            widths[i] = std::max<std::size_t>(widths[i], 1);
        else
            widths[i] = kindOf(type, 0).size;
        rowBytes += widths[i] + sizeof(SQLLEN);
    }
    const std::size_t chunk = std::max<std::size_t>(1, std::min(rows.size(), arrayBudget / rowBytes));

    m_arrays.resize(m_params.size());
    std::int64_t total = 0;
    bool arrays = true;
    // The array bindings point into m_arrays; single executions bind afresh afterwards.
    struct Restore {
        OdbcStatement& statement;
        ~Restore() {
            SQLHSTMT handle = statement.m_handle.get();
            SQLFreeStmt(handle, SQL_CLOSE);
            SQLFreeStmt(handle, SQL_RESET_PARAMS);
            SQLSetStmtAttr(handle, SQL_ATTR_PARAMSET_SIZE, reinterpret_cast<SQLPOINTER>(1), 0);
            SQLSetStmtAttr(handle, SQL_ATTR_PARAM_STATUS_PTR, nullptr, 0);
            for (auto& param : statement.m_params)
                param.cType = 0;
            // Kept for the next batch of this statement, unless a batch of long values made them large.
            for (auto& column : statement.m_arrays)
                if (column.data.capacity() > keptArrayBytes) column = ArrayColumn();
        }
    } restore{*this};
    SQLHSTMT handle = m_handle.get();
    for (std::size_t first = 0; first < rows.size(); first += chunk) {
        const std::size_t count = std::min(chunk, rows.size() - first);
        if (arrays && count >= 2 &&
            !Detail::succeeded(SQLSetStmtAttr(handle, SQL_ATTR_PARAMSET_SIZE,
                                              reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(count)),
                                              0))) {
            m_arraysRefused = true;
            arrays = false;
        }
        if (!arrays || count < 2) {
            SQLSetStmtAttr(handle, SQL_ATTR_PARAMSET_SIZE, reinterpret_cast<SQLPOINTER>(1), 0);
            SQLSetStmtAttr(handle, SQL_ATTR_PARAM_STATUS_PTR, nullptr, 0);
            SQLFreeStmt(handle, SQL_RESET_PARAMS);
            for (auto& param : m_params)
                param.cType = 0;
            for (std::size_t r = first; r < first + count; ++r) {
                const std::int64_t affected = execute(rows[r]);
                total = affected < 0 || total < 0 ? -1 : total + affected;
            }
            continue;
        }
        m_paramStatus.assign(count, SQL_PARAM_UNUSED);
        SQLSetStmtAttr(handle, SQL_ATTR_PARAM_BIND_TYPE,
                       reinterpret_cast<SQLPOINTER>(SQL_PARAM_BIND_BY_COLUMN), 0);
        SQLSetStmtAttr(handle, SQL_ATTR_PARAM_STATUS_PTR, m_paramStatus.data(), 0);
        std::string json;
        for (std::size_t i = 0; i < m_params.size(); ++i) {
            ArrayColumn& column = m_arrays[i];
            const std::size_t width = widths[i];
            column.data.resize(width * count);
            column.indicators.resize(count);
            for (std::size_t r = 0; r < count; ++r) {
                const Variant& value = rows[first + r][i];
                char* target = column.data.data() + r * width;
                if (value.isNull()) {
                    column.indicators[r] = SQL_NULL_DATA;
                } else if (types[i] == Variant::Type::String || types[i] == Variant::Type::Binary) {
                    const std::string_view bytes = bytesOf(value, json);
                    if (!bytes.empty()) std::memcpy(target, bytes.data(), bytes.size());
                    if (types[i] == Variant::Type::String) target[bytes.size()] = '\0';
                    column.indicators[r] = static_cast<SQLLEN>(bytes.size());
                } else {
                    storeFixed(target, value);
                    column.indicators[r] = static_cast<SQLLEN>(width);
                }
            }
            SQLSMALLINT cType, sqlType, digits = 0;
            SQLULEN columnSize;
            if (types[i] == Variant::Type::Null) {
                const NullType& null = nullType(static_cast<SQLUSMALLINT>(i));
                cType = SQL_C_CHAR, sqlType = null.sqlType, columnSize = null.columnSize,
                digits = null.digits;
            } else {
                const SqlKind kind = kindOf(types[i], types[i] == Variant::Type::String ? width - 1 : width);
                cType = kind.cType, sqlType = kind.sqlType, columnSize = kind.columnSize;
            }
            if (!Detail::succeeded(SQLBindParameter(handle, static_cast<SQLUSMALLINT>(i + 1), SQL_PARAM_INPUT,
                                                    cType, sqlType, columnSize, digits, column.data.data(),
                                                    static_cast<SQLLEN>(width), column.indicators.data())))
                Detail::throwDiagnostics(SQL_HANDLE_STMT, handle, "Db: cannot bind a parameter array", m_sql);
        }
        for (auto& param : m_params)
            param.cType = 0;
        const SQLRETURN result = run();
        std::int64_t affected = result == SQL_NO_DATA ? 0 : rowCount();
        // Drivers that count each row of the array apart report the others as further results.
        while (result != SQL_NO_DATA && affected >= 0) {
            const SQLRETURN more = SQLMoreResults(handle);
            if (more == SQL_NO_DATA) break;
            if (!Detail::succeeded(more))
                Detail::throwDiagnostics(SQL_HANDLE_STMT, handle, "Db: statement failed", m_sql);
            const std::int64_t next = rowCount();
            affected = next < 0 ? -1 : affected + next;
        }
        for (const SQLUSMALLINT status : m_paramStatus)
            if (status == SQL_PARAM_ERROR)
                Detail::throwDiagnostics(SQL_HANDLE_STMT, handle, "Db: statement failed", m_sql);
        SQLFreeStmt(handle, SQL_CLOSE);
        total = affected < 0 || total < 0 ? -1 : total + affected;
    }
    return total;
}

} // namespace Zel::Db::Odbc
