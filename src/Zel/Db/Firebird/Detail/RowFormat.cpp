#include <Zel/Db/Firebird/Detail/RowFormat.h>
#include <Zel/LongBinary.h>
#include <cstdio>
#include <cstring>

namespace Zel::Db::Firebird::Detail {
namespace {

constexpr unsigned charSetOctets = 1;
constexpr unsigned charSetUnicodeFss = 3;
constexpr unsigned charSetUtf8 = 4;

Variant::Type variantType(unsigned type, int scale, int subType, unsigned charSet) {
    switch (type) {
    case SQL_TEXT:
    case SQL_VARYING:
        return charSet == charSetOctets ? Variant::Type::Binary : Variant::Type::String;
    case SQL_SHORT:
    case SQL_LONG:
    case SQL_INT64:
        // The sub-type tells NUMERIC (1) and DECIMAL (2) from the plain integer types.
        if (scale < 0) return Variant::Type::String;
        if (subType != 0) return Variant::Type::Int64;
        return type == SQL_SHORT  ? Variant::Type::Short
               : type == SQL_LONG ? Variant::Type::Int32
                                  : Variant::Type::Int64;
    case SQL_FLOAT:
        return Variant::Type::Float;
    case SQL_DOUBLE:
    case SQL_D_FLOAT:
        return Variant::Type::Double;
    case SQL_BOOLEAN:
        return Variant::Type::Bool;
    case SQL_TYPE_DATE:
        return Variant::Type::Date;
    case SQL_TYPE_TIME:
        return Variant::Type::Time;
    case SQL_TIMESTAMP:
        return Variant::Type::Timestamp;
    case SQL_BLOB:
        return subType == 1 ? Variant::Type::String : Variant::Type::Binary;
    default:
        return Variant::Type::Null;
    }
}

template <class T>
T load(const unsigned char* field) noexcept {
    T value;
    std::memcpy(&value, field, sizeof value);
    return value;
}

// The exact text of an integer scaled by 10^scale (scale < 0): -5 at scale -2 is "-0.05".
std::string decimalText(std::int64_t value, int scale) {
    const bool negative = value < 0;
    std::uint64_t magnitude =
        negative ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    char digits[48];
    char* end = digits + sizeof digits;
    char* at = end;
    const int fraction = -scale;
    for (int written = 0; magnitude != 0 || written <= fraction; ++written) {
        if (written == fraction && fraction > 0) *--at = '.';
        *--at = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    }
    if (negative) *--at = '-';
    return std::string(at, end);
}

// A CHAR field arrives padded with spaces to its length in bytes, four per character in UTF8; the
// padding beyond the column's length in characters goes, the column's own padding stays.
std::string fixedText(const char* text, unsigned length, unsigned charSet) {
    const unsigned bytesPerCharacter = charSet == charSetUtf8 ? 4 : charSet == charSetUnicodeFss ? 3 : 1;
    std::size_t size = length;
    if (bytesPerCharacter > 1) {
        std::size_t characters = 0;
        for (std::size_t i = 0; i < size; ++i)
            characters += (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80;
        const std::size_t wanted = length / bytesPerCharacter;
        for (std::size_t excess = characters > wanted ? characters - wanted : 0;
             excess > 0 && size > 0 && text[size - 1] == ' '; --excess)
            --size;
    }
    return std::string(text, size);
}

std::string fractionText(Fb::IUtil* util, const ISC_DATE* date, ISC_TIME time) {
    unsigned hours = 0, minutes = 0, seconds = 0, fractions = 0;
    util->decodeTime(time, &hours, &minutes, &seconds, &fractions);
    char text[40];
    if (date == nullptr) {
        std::snprintf(text, sizeof text, "%02u:%02u:%02u.%04u", hours, minutes, seconds, fractions);
    } else {
        unsigned year = 0, month = 0, day = 0;
        util->decodeDate(*date, &year, &month, &day);
        std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u.%04u", year, month, day, hours,
                      minutes, seconds, fractions);
    }
    return text;
}

Variant readBlob(Session& session, const ISC_QUAD& id, bool text, Fb::ITransaction* transaction,
                 const std::string& sql) {
    Fb::CheckStatusWrapper* status = session.status();
    ISC_QUAD blobId = id;
    Fb::IBlob* blob = session.attachment->openBlob(status, transaction, &blobId, 0, nullptr);
    session.check("Db: cannot open a blob", sql);

    const unsigned char items[] = {isc_info_blob_total_length};
    unsigned char info[32] = {};
    blob->getInfo(status, sizeof items, items, sizeof info, info);
    std::size_t total = 0;
    if (!session.failed() && info[0] == isc_info_blob_total_length) {
        const unsigned size = info[1] | info[2] << 8;
        for (unsigned i = 0; i < size && i < 8; ++i)
            total |= static_cast<std::size_t>(info[3 + i]) << (8 * i);
    }

    std::string bytes;
    bytes.resize(total);
    std::size_t done = 0;
    for (;;) {
        if (done == bytes.size()) bytes.resize(bytes.size() + 65535);
        unsigned got = 0;
        const unsigned room = static_cast<unsigned>(std::min<std::size_t>(bytes.size() - done, 65535));
        const int result = blob->getSegment(status, room, bytes.data() + done, &got);
        done += got;
        if (result != Fb::IStatus::RESULT_OK && result != Fb::IStatus::RESULT_SEGMENT) break;
    }
    if (!session.failed()) blob->close(status);
    if (session.failed()) {
        DbException error = session.error("Db: cannot read a blob", sql);
        blob->release();
        throw error;
    }
    bytes.resize(done);
    if (text) return Variant(std::move(bytes));
    LongBinary binary(bytes.data(), static_cast<std::int32_t>(bytes.size()));
    return Variant(std::move(binary));
}

} // namespace

RowFormat::RowFormat(Session& session, Fb::IMessageMetadata* metadata, const std::string& sql) {
    Fb::CheckStatusWrapper* status = session.status();
    const unsigned count = metadata->getCount(status);
    session.check("Db: cannot describe the columns", sql);
    m_fields.resize(count);
    m_columns.resize(count);
    for (unsigned i = 0; i < count; ++i) {
        Field& field = m_fields[i];
        field.type = metadata->getType(status, i) & ~1u;
        field.offset = metadata->getOffset(status, i);
        field.nullOffset = metadata->getNullOffset(status, i);
        field.length = metadata->getLength(status, i);
        field.scale = metadata->getScale(status, i);
        field.subType = metadata->getSubType(status, i);
        field.charSet = metadata->getCharSet(status, i);
        const char* alias = metadata->getAlias(status, i);
        session.check("Db: cannot describe the columns", sql);
        m_columns[i].name = alias != nullptr && *alias != '\0' ? alias : metadata->getField(status, i);
        m_columns[i].type = variantType(field.type, field.scale, field.subType, field.charSet);
    }
    m_messageLength = metadata->getMessageLength(status);
    session.check("Db: cannot describe the columns", sql);
}

Variant RowFormat::read(Session& session, const unsigned char* message, std::size_t index,
                        Fb::ITransaction* transaction, const std::string& sql) const {
    const Field& field = m_fields[index];
    if (load<std::int16_t>(message + field.nullOffset) != 0) return Variant();
    const unsigned char* data = message + field.offset;
    const Variant::Type type = m_columns[index].type;
    switch (field.type) {
    case SQL_TEXT:
        if (type == Variant::Type::Binary)
            return Variant(LongBinary(data, static_cast<std::int32_t>(field.length)));
        return Variant(fixedText(reinterpret_cast<const char*>(data), field.length, field.charSet));
    case SQL_VARYING: {
        const auto size = load<std::uint16_t>(data);
        if (type == Variant::Type::Binary) return Variant(LongBinary(data + 2, size));
        return Variant(std::string_view(reinterpret_cast<const char*>(data + 2), size));
    }
    case SQL_SHORT:
    case SQL_LONG:
    case SQL_INT64: {
        const std::int64_t value = field.type == SQL_SHORT  ? load<std::int16_t>(data)
                                   : field.type == SQL_LONG ? load<std::int32_t>(data)
                                                            : load<std::int64_t>(data);
        if (type == Variant::Type::String) return Variant(decimalText(value, field.scale));
        if (type == Variant::Type::Short) return Variant(static_cast<short>(value));
        if (type == Variant::Type::Int32) return Variant(static_cast<int>(value));
        return Variant(value);
    }
    case SQL_FLOAT:
        return Variant(load<float>(data));
    case SQL_DOUBLE:
    case SQL_D_FLOAT:
        return Variant(load<double>(data));
    case SQL_BOOLEAN:
        return Variant(*data != 0);
    case SQL_TYPE_DATE: {
        unsigned year = 0, month = 0, day = 0;
        session.util()->decodeDate(load<ISC_DATE>(data), &year, &month, &day);
        return Variant(Zel::Date(static_cast<int>(year), static_cast<int>(month), static_cast<int>(day)));
    }
    case SQL_TYPE_TIME: {
        const auto time = load<ISC_TIME>(data);
        if (time % 10000 != 0) return Variant(fractionText(session.util(), nullptr, time));
        unsigned hours = 0, minutes = 0, seconds = 0, fractions = 0;
        session.util()->decodeTime(time, &hours, &minutes, &seconds, &fractions);
        return Variant(
            Zel::Time(static_cast<int>(hours), static_cast<int>(minutes), static_cast<int>(seconds)));
    }
    case SQL_TIMESTAMP: {
        const auto stamp = load<ISC_TIMESTAMP>(data);
        if (stamp.timestamp_time % 10000 != 0)
            return Variant(fractionText(session.util(), &stamp.timestamp_date, stamp.timestamp_time));
        unsigned year = 0, month = 0, day = 0, hours = 0, minutes = 0, seconds = 0, fractions = 0;
        session.util()->decodeDate(stamp.timestamp_date, &year, &month, &day);
        session.util()->decodeTime(stamp.timestamp_time, &hours, &minutes, &seconds, &fractions);
        return Variant(Zel::DateTime(
            Zel::Date(static_cast<int>(year), static_cast<int>(month), static_cast<int>(day)),
            Zel::Time(static_cast<int>(hours), static_cast<int>(minutes), static_cast<int>(seconds))));
    }
    case SQL_BLOB:
        return readBlob(session, load<ISC_QUAD>(data), field.subType == 1, transaction, sql);
    case SQL_NULL:
        return Variant();
    default:
        throw DbException("Db: unsupported column type | column=" + m_columns[index].name +
                          " | type=" + std::to_string(field.type) + " | sql=" + sql);
    }
}

} // namespace Zel::Db::Firebird::Detail
