#include <Zel/Db/Firebird/Detail/ParameterBinder.h>
#include <Zel/Detail/VariantAccess.h>
#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

namespace Zel::Db::Firebird::Detail {
namespace {

// What a parameter becomes in the message; the low four bits of its signature.
enum Kind : std::uint16_t {
    KindDeclared, // a null, or a value the declared type holds as it is

    KindBoolean,
    KindShort,
    KindInteger,
    KindBigint,
    KindFloat,
    KindDouble,
    KindDate,
    KindTime,
    KindTimestamp,
    KindText,
    KindOctets,
    KindTextBlob,
    KindBinaryBlob,
};

constexpr unsigned charSetOctets = 1;
constexpr unsigned charSetUtf8 = 4;
constexpr std::size_t maxInline = 32765;  // the longest VARCHAR, in bytes
constexpr std::size_t maxSegment = 32768; // blobs are written in segments of at most this size
constexpr std::size_t formatsKept = 8;

// Inline texts are declared with a length rounded up to a power of two (at least 32 bytes), so
// that strings of similar lengths share one format: the signature keeps the exponent.
std::uint16_t inlineSignature(Kind kind, std::size_t size) {
    const unsigned exponent = std::max(5u, static_cast<unsigned>(std::bit_width(size > 0 ? size - 1 : 0)));
    return static_cast<std::uint16_t>(kind | exponent << 4);
}

unsigned inlineLength(std::uint16_t signature) {
    const unsigned exponent = signature >> 4;
    return exponent >= 15 ? static_cast<unsigned>(maxInline) : 1u << exponent;
}

std::string_view textOf(const Variant& value, const std::string& json) {
    return value.isString() ? std::string_view(Zel::Detail::VariantAccess::string(value)) : std::string_view(json);
}

// The bytes a string, binary, map or vector (its JSON text in `json`) is sent as.
std::string_view bytesOf(const Variant& value, const std::string& json) {
    if (value.type() != Variant::Type::Binary) return textOf(value, json);
    return std::string_view(reinterpret_cast<const char*>(value.binary().data()),
                            static_cast<std::size_t>(value.binary().size()));
}

template <class T>
void store(unsigned char* target, const T& value) noexcept {
    std::memcpy(target, &value, sizeof value);
}

} // namespace

ParameterBinder::ParameterBinder(Session& session, Fb::IMessageMetadata* prepared)
    : m_session(session), m_prepared(prepared), m_count(prepared->getCount(session.status())) {
    session.check("Db: cannot describe the parameters");
    Fb::CheckStatusWrapper* status = session.status();
    m_declared.resize(m_count);
    for (unsigned i = 0; i < m_count; ++i) {
        m_declared[i].type = prepared->getType(status, i) & ~1u;
        m_declared[i].length = prepared->getLength(status, i);
        m_declared[i].scale = prepared->getScale(status, i);
        m_declared[i].charSet = prepared->getCharSet(status, i);
    }
    session.check("Db: cannot describe the parameters");
    m_prepared->addRef();
    m_signature.resize(m_count);
    m_texts.resize(m_count);
    m_metadata = m_prepared;
}

ParameterBinder::~ParameterBinder() {
    for (Format& cached : m_formats)
        cached.metadata->release();
    m_prepared->release();
}

void ParameterBinder::requireCount(std::size_t given, const std::string& sql) const {
    if (given != m_count)
        throw DbException("Db: wrong number of parameters | expected=" + std::to_string(m_count) +
                              " | given=" + std::to_string(given),
                          {}, {}, 0, sql);
}

void ParameterBinder::bind(const std::vector<Variant>& values, Fb::ITransaction* transaction,
                           const std::string& sql) {
    requireCount(values.size(), sql);
    if (m_count == 0) return;
    for (std::size_t i = 0; i < m_count; ++i)
        m_signature[i] = signatureOf(values[i], i, sql);
    const Format& chosen = format(sql);
    m_metadata = chosen.metadata;
    for (std::size_t i = 0; i < m_count; ++i)
        write(chosen, i, values[i], transaction, sql);
}

bool ParameterBinder::fitsDeclared(const Variant& value, const Declared& declared) const {
    switch (declared.type) {
    case SQL_VARYING:
        if (value.isString())
            return declared.charSet != charSetOctets && Zel::Detail::VariantAccess::string(value).size() <= declared.length &&
                   (declared.charSet == charSetUtf8 || declared.charSet == 0);
        return value.type() == Variant::Type::Binary && declared.charSet == charSetOctets &&
               static_cast<unsigned>(value.binary().size()) <= declared.length;
    case SQL_SHORT:
    case SQL_LONG:
    case SQL_INT64: {
        if (declared.scale != 0 || !value.isInteger()) return false;
        const auto number = static_cast<std::int64_t>(value);
        if (declared.type == SQL_SHORT) return number >= INT16_MIN && number <= INT16_MAX;
        if (declared.type == SQL_LONG) return number >= INT32_MIN && number <= INT32_MAX;
        return true;
    }
    case SQL_DOUBLE:
        return value.type() == Variant::Type::Double || value.type() == Variant::Type::Float;
    case SQL_FLOAT:
        return value.type() == Variant::Type::Float;
    case SQL_BOOLEAN:
        return value.type() == Variant::Type::Bool;
    case SQL_TYPE_DATE:
        return value.type() == Variant::Type::Date;
    case SQL_TYPE_TIME:
        return value.type() == Variant::Type::Time;
    case SQL_TIMESTAMP:
        return value.type() == Variant::Type::Timestamp;
    default:
        return false;
    }
}

std::uint16_t ParameterBinder::signatureOf(const Variant& value, std::size_t index, const std::string& sql) {
    if (value.isNull() || fitsDeclared(value, m_declared[index])) return KindDeclared;
    switch (value.type()) {
    case Variant::Type::Bool:
        return KindBoolean;
    case Variant::Type::Byte:
    case Variant::Type::Short:
        return KindShort;
    case Variant::Type::Int32:
        return KindInteger;
    case Variant::Type::Int64:
        return KindBigint;
    case Variant::Type::Float:
        return KindFloat;
    case Variant::Type::Double:
        return KindDouble;
    case Variant::Type::Date:
        return KindDate;
    case Variant::Type::Time:
        return KindTime;
    case Variant::Type::Timestamp:
        return KindTimestamp;
    case Variant::Type::Map:
    case Variant::Type::Vector:
        m_texts[index] = value.toJson();
        [[fallthrough]];
    case Variant::Type::String: {
        const std::size_t size = textOf(value, m_texts[index]).size();
        return size > maxInline ? std::uint16_t{KindTextBlob} : inlineSignature(KindText, size);
    }
    case Variant::Type::Binary: {
        const std::size_t size = static_cast<std::size_t>(value.binary().size());
        return size > maxInline ? std::uint16_t{KindBinaryBlob} : inlineSignature(KindOctets, size);
    }
    default:
        throw DbException("Db: cannot bind a value of this type | index=" + std::to_string(index) +
                          " | type=" + Variant::typeToString(value.type()) + " | sql=" + sql);
    }
}

ParameterBinder::Format& ParameterBinder::format(const std::string& sql) {
    const auto found = std::find_if(m_formats.begin(), m_formats.end(),
                                    [&](const Format& cached) { return cached.signature == m_signature; });
    if (found != m_formats.end()) {
        if (found != m_formats.begin()) std::rotate(m_formats.begin(), found, found + 1);
        return m_formats.front();
    }

    Fb::CheckStatusWrapper* status = m_session.status();
    Fb::IMetadataBuilder* builder = m_prepared->getBuilder(status);
    m_session.check("Db: cannot describe the parameters", sql);
    for (unsigned i = 0; i < m_count && !m_session.failed(); ++i) {
        const std::uint16_t signature = m_signature[i];
        unsigned type = 0, length = 0, charSet = 0;
        int subType = 0;
        switch (static_cast<Kind>(signature & 0xF)) {
        case KindDeclared:
            continue;
        case KindBoolean:
            type = SQL_BOOLEAN, length = 1;
            break;
        case KindShort:
            type = SQL_SHORT, length = 2;
            break;
        case KindInteger:
            type = SQL_LONG, length = 4;
            break;
        case KindBigint:
            type = SQL_INT64, length = 8;
            break;
        case KindFloat:
            type = SQL_FLOAT, length = 4;
            break;
        case KindDouble:
            type = SQL_DOUBLE, length = 8;
            break;
        case KindDate:
            type = SQL_TYPE_DATE, length = 4;
            break;
        case KindTime:
            type = SQL_TYPE_TIME, length = 4;
            break;
        case KindTimestamp:
            type = SQL_TIMESTAMP, length = 8;
            break;
        case KindText:
            type = SQL_VARYING, length = inlineLength(signature), charSet = charSetUtf8;
            break;
        case KindOctets:
            type = SQL_VARYING, length = inlineLength(signature), charSet = charSetOctets;
            break;
        case KindTextBlob:
            type = SQL_BLOB, length = 8, subType = 1, charSet = charSetUtf8;
            break;
        case KindBinaryBlob:
            type = SQL_BLOB, length = 8;
            break;
        }
        // The builder keeps a field's old length, scale and character set across a change of
        // type: every one of them is set, or a NUMERIC(10,2) column would scale an integer.
        builder->setType(status, i, type | 1);
        builder->setLength(status, i, length);
        builder->setScale(status, i, 0);
        builder->setSubType(status, i, subType);
        builder->setCharSet(status, i, charSet);
    }
    Fb::IMessageMetadata* metadata = m_session.failed() ? nullptr : builder->getMetadata(status);
    builder->release();
    m_session.check("Db: cannot build the parameter message", sql);

    Format built;
    built.signature = m_signature;
    built.metadata = metadata;
    built.offsets.resize(m_count);
    built.nullOffsets.resize(m_count);
    for (unsigned i = 0; i < m_count; ++i) {
        built.offsets[i] = metadata->getOffset(status, i);
        built.nullOffsets[i] = metadata->getNullOffset(status, i);
    }
    built.length = metadata->getMessageLength(status);
    if (m_session.failed()) {
        metadata->release();
        m_session.raise("Db: cannot build the parameter message", sql);
    }
    if (m_formats.size() >= formatsKept) {
        m_formats.back().metadata->release();
        m_formats.pop_back();
    }
    m_buffer.resize(std::max<std::size_t>(m_buffer.size(), (built.length + 7) / 8));
    m_formats.insert(m_formats.begin(), std::move(built));
    return m_formats.front();
}

void ParameterBinder::write(const Format& format, std::size_t index, const Variant& value,
                            Fb::ITransaction* transaction, const std::string& sql) {
    unsigned char* message = reinterpret_cast<unsigned char*>(m_buffer.data());
    const std::int16_t nullFlag = value.isNull() ? -1 : 0;
    std::memcpy(message + format.nullOffsets[index], &nullFlag, sizeof nullFlag);
    if (value.isNull()) return;
    unsigned char* target = message + format.offsets[index];
    Fb::IUtil* util = m_session.util();
    unsigned type = 0;
    switch (static_cast<Kind>(format.signature[index] & 0xF)) {
    case KindDeclared:
        type = m_declared[index].type;
        break;
    case KindBoolean:
        type = SQL_BOOLEAN;
        break;
    case KindShort:
        type = SQL_SHORT;
        break;
    case KindInteger:
        type = SQL_LONG;
        break;
    case KindBigint:
        type = SQL_INT64;
        break;
    case KindFloat:
        type = SQL_FLOAT;
        break;
    case KindDouble:
        type = SQL_DOUBLE;
        break;
    case KindDate:
        type = SQL_TYPE_DATE;
        break;
    case KindTime:
        type = SQL_TYPE_TIME;
        break;
    case KindTimestamp:
        type = SQL_TIMESTAMP;
        break;
    case KindText:
    case KindOctets:
        type = SQL_VARYING;
        break;
    case KindTextBlob:
    case KindBinaryBlob:
        type = SQL_BLOB;
        break;
    }
    switch (type) {
    case SQL_BOOLEAN:
        *target = static_cast<bool>(value) ? 1 : 0;
        break;
    case SQL_SHORT:
        store(target, static_cast<std::int16_t>(static_cast<std::int64_t>(value)));
        break;
    case SQL_LONG:
        store(target, static_cast<std::int32_t>(static_cast<std::int64_t>(value)));
        break;
    case SQL_INT64:
        store(target, static_cast<std::int64_t>(value));
        break;
    case SQL_FLOAT:
        store(target, static_cast<float>(value));
        break;
    case SQL_DOUBLE:
        store(target, static_cast<double>(value));
        break;
    case SQL_TYPE_DATE: {
        const Zel::Date& date = value.date();
        store(target, util->encodeDate(date.year(), date.month(), date.day()));
        break;
    }
    case SQL_TYPE_TIME: {
        const Zel::Time& time = value.time();
        store(target, util->encodeTime(time.hour(), time.minute(), time.second(), 0));
        break;
    }
    case SQL_TIMESTAMP: {
        const Zel::DateTime& stamp = value.dateTime();
        ISC_TIMESTAMP encoded;
        encoded.timestamp_date = util->encodeDate(stamp.year(), stamp.month(), stamp.day());
        encoded.timestamp_time = util->encodeTime(stamp.hour(), stamp.minute(), stamp.second(), 0);
        store(target, encoded);
        break;
    }
    case SQL_VARYING: {
        const std::string_view bytes = bytesOf(value, m_texts[index]);
        store(target, static_cast<std::uint16_t>(bytes.size()));
        if (!bytes.empty()) std::memcpy(target + sizeof(std::uint16_t), bytes.data(), bytes.size());
        break;
    }
    case SQL_BLOB: {
        const std::string_view bytes = bytesOf(value, m_texts[index]);
        writeBlob(target, bytes.data(), bytes.size(), transaction, sql);
        break;
    }
    }
}

void ParameterBinder::writeBlob(unsigned char* target, const void* data, std::size_t size,
                                Fb::ITransaction* transaction, const std::string& sql) {
    Fb::CheckStatusWrapper* status = m_session.status();
    ISC_QUAD id{};
    Fb::IBlob* blob = m_session.attachment->createBlob(status, transaction, &id, 0, nullptr);
    m_session.check("Db: cannot create a blob", sql);
    const auto* bytes = static_cast<const unsigned char*>(data);
    for (std::size_t done = 0; done < size && !m_session.failed(); done += maxSegment)
        blob->putSegment(status, static_cast<unsigned>(std::min(maxSegment, size - done)), bytes + done);
    if (!m_session.failed()) blob->close(status);
    if (m_session.failed()) {
        DbException error = m_session.error("Db: cannot write a blob", sql);
        blob->cancel(status);
        if (m_session.failed()) blob->release();
        m_session.status()->init();
        throw error;
    }
    std::memcpy(target, &id, sizeof id);
}

} // namespace Zel::Db::Firebird::Detail
