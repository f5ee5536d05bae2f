#include <Zel/Db/DbException.h>
#include <Zel/Db/Odbc/OdbcRecordset.h>
#include <charconv>
#include <cstdio>

namespace Zel::Db::Odbc {
namespace {

bool fitsShort(std::int64_t value) noexcept {
    return value >= INT16_MIN && value <= INT16_MAX;
}

bool fitsInt32(std::int64_t value) noexcept {
    return value >= INT32_MIN && value <= INT32_MAX;
}

// Whether the digits after the decimal point of a time or timestamp text are all zero.
bool wholeSeconds(std::string_view text) noexcept {
    const std::size_t point = text.find('.');
    if (point == std::string_view::npos) return true;
    for (std::size_t i = point + 1; i < text.size(); ++i)
        if (text[i] >= '1' && text[i] <= '9') return false;
    return true;
}

std::string_view textOf(const Variant& text) {
    std::int64_t size = 0;
    const void* data = text._rawData(&size);
    return {static_cast<const char*>(data), static_cast<std::size_t>(size)};
}

} // namespace

OdbcRecordset::OdbcRecordset(std::shared_ptr<OdbcStatement> statement) : m_statement(std::move(statement)) {
    SQLHSTMT handle = m_statement->handle();
    SQLSMALLINT count = 0;
    if (!Detail::succeeded(SQLNumResultCols(handle, &count))) {
        m_eof = false;
        fail("Db: cannot describe the result");
    }
    m_columns.resize(static_cast<std::size_t>(count));
    m_reads.resize(m_columns.size());
    m_scales.resize(m_columns.size());
    m_values.resize(m_columns.size());
    std::vector<SQLCHAR> name(256);
    for (SQLUSMALLINT i = 0; i < static_cast<SQLUSMALLINT>(count); ++i) {
        SQLSMALLINT nameLength = 0, sqlType = 0, scale = 0, nullable = 0;
        SQLULEN size = 0;
        SQLRETURN result = SQLDescribeCol(handle, static_cast<SQLUSMALLINT>(i + 1), name.data(),
                                          static_cast<SQLSMALLINT>(name.size()), &nameLength, &sqlType, &size,
                                          &scale, &nullable);
        if (Detail::succeeded(result) && static_cast<std::size_t>(nameLength) >= name.size()) {
            name.resize(static_cast<std::size_t>(nameLength) + 1);
            result = SQLDescribeCol(handle, static_cast<SQLUSMALLINT>(i + 1), name.data(),
                                    static_cast<SQLSMALLINT>(name.size()), &nameLength, &sqlType, &size,
                                    &scale, &nullable);
        }
        if (!Detail::succeeded(result)) {
            m_eof = false;
            fail("Db: cannot describe the result");
        }
        Column& column = m_columns[i];
        column.name.assign(reinterpret_cast<const char*>(name.data()), static_cast<std::size_t>(nameLength));
        m_scales[i] = scale;
        switch (sqlType) {
        case SQL_BIT:
            m_reads[i] = Read::Bool, column.type = Variant::Type::Bool;
            break;
        case SQL_TINYINT:
        case SQL_SMALLINT:
            m_reads[i] = Read::Integer, column.type = Variant::Type::Short;
            break;
        case SQL_INTEGER:
            m_reads[i] = Read::Integer, column.type = Variant::Type::Int32;
            break;
        case SQL_BIGINT:
            m_reads[i] = Read::Integer, column.type = Variant::Type::Int64;
            break;
        case SQL_REAL:
            m_reads[i] = Read::Float, column.type = Variant::Type::Float;
            break;
        case SQL_FLOAT:
        case SQL_DOUBLE:
            m_reads[i] = Read::Double, column.type = Variant::Type::Double;
            break;
        case SQL_NUMERIC:
        case SQL_DECIMAL:
            m_reads[i] = Read::Decimal,
            column.type = scale == 0 ? Variant::Type::Int64 : Variant::Type::String;
            break;
        case SQL_TYPE_DATE:
        case SQL_DATE:
            m_reads[i] = Read::Date, column.type = Variant::Type::Date;
            break;
        case SQL_TYPE_TIME:
        case SQL_TIME:
            m_reads[i] = Read::Time, column.type = Variant::Type::Time;
            break;
        case SQL_TYPE_TIMESTAMP:
        case SQL_TIMESTAMP:
            m_reads[i] = Read::Timestamp, column.type = Variant::Type::Timestamp;
            break;
        case SQL_BINARY:
        case SQL_VARBINARY:
        case SQL_LONGVARBINARY:
            m_reads[i] = Read::Binary, column.type = Variant::Type::Binary;
            break;
        default:
            m_reads[i] = Read::Text, column.type = Variant::Type::String;
            break;
        }
    }
    if (m_columns.empty()) {
        m_statement->closeCursor();
        return;
    }
    m_statement->setBusy(true);
    m_eof = false;
    fetch();
}

OdbcRecordset::~OdbcRecordset() {
    if (!m_eof) finish();
}

void OdbcRecordset::finish() noexcept {
    m_eof = true;
    m_statement->closeCursor();
    m_statement->setBusy(false);
}

void OdbcRecordset::fail(const std::string& what) {
    try {
        Detail::throwDiagnostics(SQL_HANDLE_STMT, m_statement->handle(), what, m_statement->sql());
    } catch (...) {
        if (!m_eof) finish();
        throw;
    }
}

void OdbcRecordset::fetch() {
    const SQLRETURN result = SQLFetch(m_statement->handle());
    if (result == SQL_NO_DATA) {
        finish();
        return;
    }
    if (!Detail::succeeded(result)) fail("Db: cannot read the next row");
    m_valuesRead = 0;
}

bool OdbcRecordset::next() {
    m_statement->requireConnected();
    if (m_eof) throw DbException("Db: read past the last row", {}, {}, 0, m_statement->sql());
    fetch();
    return !m_eof;
}

Variant OdbcRecordset::value(std::size_t index) {
    m_statement->requireConnected();
    if (m_eof) throw DbException("Db: no current row", {}, {}, 0, m_statement->sql());
    if (index >= m_columns.size())
        throw DbException("Db: column index out of range | index=" + std::to_string(index) +
                          " | columns=" + std::to_string(m_columns.size()));
    // Drivers may only read columns forward: the ones before `index` are read (and kept) first.
    while (m_valuesRead <= index) {
        m_values[m_valuesRead] = read(m_valuesRead);
        ++m_valuesRead;
    }
    return m_values[index];
}

Variant OdbcRecordset::read(std::size_t index) {
    SQLHSTMT handle = m_statement->handle();
    const auto column = static_cast<SQLUSMALLINT>(index + 1);
    SQLLEN indicator = 0;
    auto get = [&](SQLSMALLINT cType, void* target, SQLLEN size) {
        if (!Detail::succeeded(SQLGetData(handle, column, cType, target, size, &indicator)))
            fail("Db: cannot read a column | column=" + m_columns[index].name);
        return indicator != SQL_NULL_DATA;
    };
    switch (m_reads[index]) {
    case Read::Bool: {
        unsigned char value = 0;
        return get(SQL_C_BIT, &value, sizeof value) ? Variant(value != 0) : Variant();
    }
    case Read::Integer: {
        SQLBIGINT value = 0;
        if (!get(SQL_C_SBIGINT, &value, sizeof value)) return Variant();
        // SQLite reports a column by its declared type, whatever it holds: a value too wide for it
        // stays an int64 instead of being cut.
        const Variant::Type type = m_columns[index].type;
        if (type == Variant::Type::Short && fitsShort(value)) return Variant(static_cast<short>(value));
        if (type == Variant::Type::Int32 && fitsInt32(value)) return Variant(static_cast<int>(value));
        return Variant(static_cast<std::int64_t>(value));
    }
    case Read::Float: {
        SQLREAL value = 0;
        return get(SQL_C_FLOAT, &value, sizeof value) ? Variant(value) : Variant();
    }
    case Read::Double: {
        SQLDOUBLE value = 0;
        return get(SQL_C_DOUBLE, &value, sizeof value) ? Variant(value) : Variant();
    }
    case Read::Date: {
        SQL_DATE_STRUCT value{};
        return get(SQL_C_TYPE_DATE, &value, sizeof value) ? Variant(Date(value.year, value.month, value.day))
                                                          : Variant();
    }
    case Read::Timestamp: {
        SQL_TIMESTAMP_STRUCT value{};
        if (!get(SQL_C_TYPE_TIMESTAMP, &value, sizeof value)) return Variant();
        if (value.fraction != 0) {
            char text[48];
            const bool micro = value.fraction % 1000 == 0;
            std::snprintf(text, sizeof text,
                          micro ? "%04d-%02u-%02u %02u:%02u:%02u.%06lu"
                                : "%04d-%02u-%02u %02u:%02u:%02u.%09lu",
                          value.year, value.month, value.day, value.hour, value.minute, value.second,
                          static_cast<unsigned long>(micro ? value.fraction / 1000 : value.fraction));
            return Variant(std::string_view(text));
        }
        return Variant(
            DateTime(Date(value.year, value.month, value.day), Time(value.hour, value.minute, value.second)));
    }
    case Read::Time: {
        // As text: TIME_STRUCT has no fraction, and a time with one reads as its exact text.
        Variant text = readBytes(column, SQL_C_CHAR);
        if (text.isNull()) return text;
        const std::string_view view = textOf(text);
        int hour = 0, minute = 0, second = 0;
        if (!wholeSeconds(view) ||
            std::sscanf(std::string(view).c_str(), "%d:%d:%d", &hour, &minute, &second) != 3)
            return text;
        return Variant(Time(hour, minute, second));
    }
    case Read::Decimal: {
        Variant text = readBytes(column, SQL_C_CHAR);
        if (text.isNull() || m_scales[index] != 0) return text;
        const std::string_view view = textOf(text);
        std::int64_t value = 0;
        const auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), value);
        if (error == std::errc() && end == view.data() + view.size()) return Variant(value);
        return text;
    }
    case Read::Binary:
        return readBytes(column, SQL_C_BINARY);
    case Read::Text:
        break;
    }
    return readBytes(column, SQL_C_CHAR);
}

Variant OdbcRecordset::readBytes(SQLUSMALLINT column, SQLSMALLINT cType) {
    SQLHSTMT handle = m_statement->handle();
    const std::size_t terminator = cType == SQL_C_CHAR ? 1 : 0;
    if (m_buffer.size() < 4096) m_buffer.resize(4096);
    std::size_t have = 0;
    for (;;) {
        SQLLEN indicator = 0;
        const SQLRETURN result = SQLGetData(handle, column, cType, m_buffer.data() + have,
                                            static_cast<SQLLEN>(m_buffer.size() - have), &indicator);
        if (result == SQL_NO_DATA) break;
        if (!Detail::succeeded(result))
            fail("Db: cannot read a column | column=" + m_columns[column - 1].name);
        if (indicator == SQL_NULL_DATA) return Variant();
        const std::size_t room = m_buffer.size() - have - terminator;
        if (indicator != SQL_NO_TOTAL && static_cast<std::size_t>(indicator) <= room) {
            have += static_cast<std::size_t>(indicator);
            break;
        }
        // Cut at `room`: the rest comes with the next call, into a buffer large enough for it.
        have += room;
        const std::size_t rest =
            indicator == SQL_NO_TOTAL ? m_buffer.size() : static_cast<std::size_t>(indicator) - room;
        m_buffer.resize(have + rest + terminator);
    }
    if (cType == SQL_C_BINARY) return Variant(LongBinary(m_buffer.data(), static_cast<std::int32_t>(have)));
    return Variant(std::string_view(m_buffer.data(), have));
}

} // namespace Zel::Db::Odbc
