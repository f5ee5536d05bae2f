#include <Zel/Variant.h>

#include <Zel/ArgumentException.h>
#include <Zel/Detail/VariantAccess.h>
#include <Zel/StringUtils.h>
#include <Zel/VariantInvalidOperationException.h>

#include <charconv>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Zel {

using Detail::ExtValueLongBinary;
using Detail::ExtValueMap;
using Detail::ExtValueString;
using Detail::ExtValueVector;
using Detail::VariantAccess;

namespace {

constexpr const char* stringOperation =
    "Zel::Variant::operator class std::basic_string<char,struct std::char_traits<char>,class std::allocator<char> >";

// Float to short keeps the low 16 bits of the value truncated toward zero, also past the range
// of a 64-bit integer (where a plain cast would be undefined).
std::int16_t lowSixteenBits(double value) noexcept {
    if (std::isnan(value)) return 0;
    const double truncated = std::trunc(value);
    if (truncated > -9.2e18 && truncated < 9.2e18) {
        return static_cast<std::int16_t>(static_cast<std::uint16_t>(static_cast<std::int64_t>(truncated)));
    }
    if (std::isinf(truncated)) return 0;
    double modulo = std::fmod(truncated, 65536.0);
    if (modulo < 0) modulo += 65536.0;
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(modulo));
}

std::string formatGeneral(double value) {
    char text[64];
    const int length = std::snprintf(text, sizeof text, "%.6g", value);
    return std::string(text, static_cast<std::size_t>(length));
}

template <class T>
std::string decimal(T value) {
    char text[24];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

} // namespace

// --- construction and assignment -----------------------------------------------------------------

Variant::Variant(Type type) {
    switch (type) {
    case Type::Null:
    case Type::Bool:
    case Type::Byte:
    case Type::Short:
    case Type::Int32:
    case Type::Int64:
    case Type::Float:
    case Type::Double:
    case Type::Date:
    case Type::Reserved: m_value.i64 = 0; break;
    case Type::Time: m_value.time = Zel::Time::fromWord(0); break;
    case Type::Timestamp: m_value.dateTime = Zel::DateTime::fromWords(0, 0); break;
    case Type::String: m_value.ext = new ExtValueString(std::string()); break;
    case Type::Binary: m_value.ext = new ExtValueLongBinary(LongBinary()); break;
    case Type::Map: m_value.ext = new ExtValueMap(); break;
    case Type::Vector: m_value.ext = new ExtValueVector(); break;
    default:
        throw ArgumentException("Variant: unknown type | type=" + std::to_string(static_cast<std::int32_t>(type)));
    }
    m_type = type;
}

Variant Variant::makeMap() {
    return Variant(Type::Map);
}

Variant Variant::makeVector() {
    return Variant(Type::Vector);
}

Variant::Variant(Zel::Time value) noexcept {
    if (!value.isNull()) {
        m_type = Type::Time;
        m_value.time = value;
    }
}

Variant::Variant(Zel::Date value) noexcept {
    if (!value.isNull()) {
        m_type = Type::Date;
        m_value.date = value;
    }
}

Variant::Variant(Zel::DateTime value) noexcept {
    if (!value.isNull()) {
        m_type = Type::Timestamp;
        m_value.dateTime = value;
    }
}

Variant::Variant(const std::string& value) : m_type(Type::String) {
    m_value.ext = new ExtValueString(value);
}

Variant::Variant(std::string&& value) : m_type(Type::String) {
    m_value.ext = new ExtValueString(std::move(value));
}

Variant::Variant(std::string_view value) : m_type(Type::String) {
    m_value.ext = new ExtValueString(std::string(value));
}

Variant::Variant(const char* value) : m_type(Type::String) {
    m_value.ext = new ExtValueString(value ? std::string(value) : std::string());
}

Variant::Variant(const LongBinary& value) : m_type(Type::Binary) {
    m_value.ext = new ExtValueLongBinary(value);
}

Variant::Variant(LongBinary&& value) : m_type(Type::Binary) {
    m_value.ext = new ExtValueLongBinary(std::move(value));
}

Variant& Variant::operator=(const Variant& other) noexcept {
    other.addReference(); // before release, so self-assignment keeps the payload alive
    release();
    m_type = other.m_type;
    m_value = other.m_value;
    return *this;
}

// Scalars: each argument type gets the tag its constructor gives it.
Variant& Variant::operator=(std::nullptr_t) noexcept {
    return VariantAccess::assignScalar(*this, Type::Null, &Value::i64, std::int64_t{0});
}

Variant& Variant::operator=(bool value) noexcept {
    return VariantAccess::assignScalar(*this, Type::Bool, &Value::b, value);
}

Variant& Variant::operator=(unsigned char value) noexcept {
    return VariantAccess::assignScalar(*this, Type::Byte, &Value::u8, value);
}

Variant& Variant::operator=(short value) noexcept {
    return VariantAccess::assignScalar(*this, Type::Short, &Value::i16, value);
}

Variant& Variant::operator=(unsigned short value) noexcept {
    return VariantAccess::assignScalar(*this, Type::Int32, &Value::i32, value);
}

Variant& Variant::operator=(int value) noexcept {
    return VariantAccess::assignScalar(*this, Type::Int32, &Value::i32, value);
}

Variant& Variant::operator=(unsigned int value) noexcept {
    return VariantAccess::assignScalar(*this, Type::Int64, &Value::i64, static_cast<std::int64_t>(value));
}

Variant& Variant::operator=(std::int64_t value) noexcept {
    return VariantAccess::assignScalar(*this, Type::Int64, &Value::i64, value);
}

Variant& Variant::operator=(float value) noexcept {
    return VariantAccess::assignScalar(*this, Type::Float, &Value::f, value);
}

Variant& Variant::operator=(double value) noexcept {
    return VariantAccess::assignScalar(*this, Type::Double, &Value::d, value);
}

Variant& Variant::operator=(Zel::Time value) noexcept {
    if (value.isNull()) return *this = nullptr;
    return VariantAccess::assignScalar(*this, Type::Time, &Value::time, value);
}

Variant& Variant::operator=(Zel::Date value) noexcept {
    if (value.isNull()) return *this = nullptr;
    return VariantAccess::assignScalar(*this, Type::Date, &Value::date, value);
}

Variant& Variant::operator=(Zel::DateTime value) noexcept {
    if (value.isNull()) return *this = nullptr;
    return VariantAccess::assignScalar(*this, Type::Timestamp, &Value::dateTime, value);
}

void Variant::setText(std::string_view text) {
    if (m_type == Type::String) {
        VariantAccess::string(*this).assign(text.data(), text.size());
        return;
    }
    auto* payload = new ExtValueString(std::string(text)); // may throw: the old value stays
    release();
    m_type = Type::String;
    m_value.ext = payload;
}

void Variant::setText(std::string&& text) {
    if (m_type == Type::String) {
        VariantAccess::string(*this) = std::move(text);
        return;
    }
    auto* payload = new ExtValueString(std::move(text));
    release();
    m_type = Type::String;
    m_value.ext = payload;
}

Variant& Variant::operator=(const std::string& value) {
    setText(std::string_view(value));
    return *this;
}

Variant& Variant::operator=(std::string&& value) {
    setText(std::move(value));
    return *this;
}

Variant& Variant::operator=(std::string_view value) {
    setText(value);
    return *this;
}

Variant& Variant::operator=(const char* value) {
    setText(value ? std::string_view(value) : std::string_view());
    return *this;
}

Variant& Variant::setType(Type type) {
    if (type != m_type) *this = Variant(type);
    return *this;
}

void Variant::clear() noexcept {
    release();
    m_type = Type::Null;
    m_value.i64 = 0;
}

// --- payload management --------------------------------------------------------------------------

void Variant::destroy(ExtValue* payload, Type type) noexcept {
    if (type != Type::Map && type != Type::Vector) {
        delete payload;
        return;
    }
    // Containers are freed from a queue rather than by recursion, so that a document nested a
    // hundred thousand levels deep is released on an ordinary stack. While the queue is active,
    // containers whose last reference drops are queued instead of deleted in place.
    thread_local std::vector<ExtValue*>* pending = nullptr;
    if (pending) {
        pending->push_back(payload);
        return;
    }
    std::vector<ExtValue*> queue;
    pending = &queue;
    delete payload;
    while (!queue.empty()) {
        ExtValue* next = queue.back();
        queue.pop_back();
        delete next;
    }
    pending = nullptr;
}

void Variant::cloneExternalValue() {
    ExtValue* payload = m_value.ext;
    if (payload->m_refCount.load() < 2) return;
    ExtValue* copy = payload->clone();
    // Another holder may have released its reference meanwhile, making this one the last.
    if (payload->m_refCount.fetch_sub(1) == 1) destroy(payload, m_type);
    m_value.ext = copy;
}

const std::string& Variant::_string() const noexcept {
    return VariantAccess::string(*this);
}

void Variant::throwInvalidOperation(const char* operation) const {
    throw VariantInvalidOperationException(operation, *this);
}

void Variant::requireType(Type type, const char* operation) const {
    if (m_type != type) throwInvalidOperation(operation);
}

// --- queries and typed access --------------------------------------------------------------------

std::string Variant::typeToString(Type type) {
    switch (type) {
    case Type::Null: return "null";
    case Type::Bool: return "bool";
    case Type::Byte: return "byte";
    case Type::Short: return "short";
    case Type::Int32: return "int32";
    case Type::Int64: return "int64";
    case Type::Float: return "float";
    case Type::Double: return "double";
    case Type::Time: return "time";
    case Type::Date: return "date";
    case Type::String: return "string";
    case Type::Binary: return "binary";
    case Type::Timestamp: return "timestamp";
    case Type::Map: return "map";
    case Type::Vector: return "vector";
    default: return std::to_string(static_cast<std::int32_t>(type));
    }
}

const Zel::Date& Variant::date() const {
    requireType(Type::Date, "Zel::Variant::date");
    return m_value.date;
}

Zel::Date& Variant::date() {
    return const_cast<Zel::Date&>(std::as_const(*this).date());
}

const Zel::Time& Variant::time() const {
    requireType(Type::Time, "Zel::Variant::time");
    return m_value.time;
}

Zel::Time& Variant::time() {
    return const_cast<Zel::Time&>(std::as_const(*this).time());
}

const Zel::DateTime& Variant::dateTime() const {
    requireType(Type::Timestamp, "Zel::Variant::dateTime");
    return m_value.dateTime;
}

const LongBinary& Variant::binary() const {
    requireType(Type::Binary, "Zel::Variant::binary");
    return VariantAccess::binary(*this);
}

LongBinary& Variant::binary() {
    requireType(Type::Binary, "Zel::Variant::binary");
    cloneExternalValue();
    return VariantAccess::binary(*this);
}

// --- conversions ---------------------------------------------------------------------------------

Variant::operator std::string() const {
    switch (m_type) {
    case Type::Null: return std::string();
    case Type::Bool: return m_value.b ? "1" : "0";
    case Type::Byte: return decimal(static_cast<int>(m_value.u8));
    case Type::Short: return decimal(static_cast<int>(m_value.i16));
    case Type::Int32: return decimal(m_value.i32);
    case Type::Int64: return decimal(m_value.i64);
    case Type::Float: return formatGeneral(m_value.f);
    case Type::Double: return formatGeneral(m_value.d);
    case Type::Time: return m_value.time.toString();
    case Type::Date: return m_value.date.toString();
    case Type::String: return VariantAccess::string(*this);
    case Type::Binary: {
        const LongBinary& bytes = VariantAccess::binary(*this);
        return std::string(reinterpret_cast<const char*>(bytes.data()), static_cast<std::size_t>(bytes.size()));
    }
    case Type::Timestamp: return m_value.dateTime.toString();
    default: throwInvalidOperation(stringOperation);
    }
}

Variant::operator bool() const {
    switch (m_type) {
    case Type::Null: return false;
    case Type::Bool: return m_value.b;
    case Type::Byte: return m_value.u8 != 0;
    case Type::Short: return m_value.i16 != 0;
    case Type::Int32: return m_value.i32 != 0;
    case Type::Int64: return m_value.i64 != 0;
    case Type::String: {
        const std::string& text = VariantAccess::string(*this);
        return text == "true" || text == "1";
    }
    default: throwInvalidOperation("Zel::Variant::operator bool");
    }
}

Variant::operator short() const {
    switch (m_type) {
    case Type::Null: return 0;
    case Type::Bool: return m_value.b ? 1 : 0;
    case Type::Byte: return m_value.u8;
    case Type::Short: return m_value.i16;
    case Type::Int32: return static_cast<std::int16_t>(static_cast<std::uint16_t>(m_value.i32));
    case Type::Int64: return static_cast<std::int16_t>(static_cast<std::uint16_t>(m_value.i64));
    case Type::Float: return lowSixteenBits(m_value.f);
    case Type::Double: return lowSixteenBits(m_value.d);
    default: throwInvalidOperation("Zel::Variant::operator short");
    }
}

Variant::operator int() const {
    switch (m_type) {
    case Type::Null: return 0;
    case Type::Bool: return m_value.b ? 1 : 0;
    case Type::Byte: return m_value.u8;
    case Type::Short: return m_value.i16;
    case Type::Int32: return m_value.i32;
    case Type::String: {
        const std::string& text = VariantAccess::string(*this);
        return text.empty() ? 0 : StringUtils::stoi(text);
    }
    default: throwInvalidOperation("Zel::Variant::operator int");
    }
}

Variant::operator unsigned int() const {
    return static_cast<unsigned int>(operator int());
}

Variant::operator std::int64_t() const {
    switch (m_type) {
    case Type::Null: return 0;
    case Type::Bool: return m_value.b ? 1 : 0;
    case Type::Byte: return m_value.u8;
    case Type::Short: return m_value.i16;
    case Type::Int32: return m_value.i32;
    case Type::Int64: return m_value.i64;
    default: throwInvalidOperation("Zel::Variant::operator __int64");
    }
}

Variant::operator double() const {
    switch (m_type) {
    case Type::Null: return 0.0;
    case Type::Bool: return m_value.b ? 1.0 : 0.0;
    case Type::Byte: return m_value.u8;
    case Type::Short: return m_value.i16;
    case Type::Int32: return m_value.i32;
    case Type::Float: return m_value.f;
    case Type::Double: return m_value.d;
    default: throwInvalidOperation("Zel::Variant::operator double"); // int64 too: it may not fit
    }
}

Variant::operator float() const {
    switch (m_type) {
    case Type::Null: return 0.0f;
    case Type::Bool: return m_value.b ? 1.0f : 0.0f;
    case Type::Byte: return m_value.u8;
    case Type::Short: return m_value.i16;
    case Type::Float: return m_value.f;
    default: throwInvalidOperation("Zel::Variant::operator float");
    }
}

Variant::operator Zel::Date() const {
    switch (m_type) {
    case Type::Null: return Zel::Date();
    case Type::Date: return m_value.date;
    case Type::String: {
        Zel::Date date;
        date.setFromSql(VariantAccess::string(*this));
        return date;
    }
    default: throwInvalidOperation("Zel::Variant::operator class Zel::Date");
    }
}

Variant::operator Zel::Time() const {
    switch (m_type) {
    case Type::Null: return Zel::Time();
    case Type::Time: return m_value.time;
    default: throwInvalidOperation("Zel::Variant::operator class Zel::Time");
    }
}

Variant::operator Zel::DateTime() const {
    switch (m_type) {
    case Type::Null: return Zel::DateTime();
    case Type::Timestamp: return m_value.dateTime;
    case Type::String: {
        Zel::DateTime dateTime;
        dateTime.setFromSql(VariantAccess::string(*this));
        return dateTime;
    }
    default: throwInvalidOperation("Zel::Variant::operator class Zel::DateTime");
    }
}

// --- maps ----------------------------------------------------------------------------------------

const Variant& Variant::operator[](const std::string& key) const {
    requireType(Type::Map, "Zel::Variant::operator []");
    const Variant* value = VariantAccess::map(*this).find(key);
    if (!value) throw GenericException("Variant: key not set | key=" + key);
    return *value;
}

const Variant& Variant::operator[](const char* key) const {
    return operator[](std::string(key ? key : ""));
}

Variant Variant::at(const std::string& key) const {
    return operator[](key);
}

Variant& Variant::setAt(std::string key, Variant value) {
    requireType(Type::Map, "Zel::Variant::setAt");
    cloneExternalValue();
    VariantAccess::map(*this).insertOrAssign(std::move(key), std::move(value));
    return *this;
}

Variant* Variant::find(const std::string& key) {
    requireType(Type::Map, "Zel::Variant::find");
    return VariantAccess::map(*this).find(key);
}

const Variant* Variant::find(const std::string& key) const {
    requireType(Type::Map, "Zel::Variant::find");
    return VariantAccess::map(*this).find(key);
}

bool Variant::contains(const std::string& key) const {
    requireType(Type::Map, "Zel::Variant::contains");
    return VariantAccess::map(*this).find(key) != nullptr;
}

bool Variant::contains(const std::string& key, Variant& out) const {
    requireType(Type::Map, "Zel::Variant::contains");
    const Variant* value = VariantAccess::map(*this).find(key);
    if (!value) return false;
    out = *value;
    return true;
}

void Variant::erase(const std::string& key) {
    requireType(Type::Map, "Zel::Variant::erase");
    cloneExternalValue();
    VariantAccess::map(*this).erase(key);
}

// --- vectors -------------------------------------------------------------------------------------

const Variant& Variant::operator[](int index) const {
    requireType(Type::Vector, "Zel::Variant::operator []");
    const std::vector<Variant>& elements = VariantAccess::vector(*this);
    if (index < 0 || static_cast<std::size_t>(index) >= elements.size()) {
        throw GenericException("Variant: index not set | index=" + std::to_string(index));
    }
    return elements[static_cast<std::size_t>(index)];
}

Variant& Variant::push_back(const Variant& value) {
    requireType(Type::Vector, "Zel::Variant::push_back");
    Variant copy(value); // `value` may live inside this vector, which the append can move
    cloneExternalValue();
    VariantAccess::vector(*this).push_back(std::move(copy));
    return *this;
}

Variant& Variant::push_back(Variant&& value) {
    requireType(Type::Vector, "Zel::Variant::push_back");
    Variant moved(std::move(value));
    cloneExternalValue();
    VariantAccess::vector(*this).push_back(std::move(moved));
    return *this;
}

bool Variant::contains(const Variant& value) const {
    requireType(Type::Vector, "Zel::Variant::contains");
    for (const Variant& element : VariantAccess::vector(*this)) {
        if (element == value) return true;
    }
    return false;
}

void Variant::erase(int index) {
    requireType(Type::Vector, "Zel::Variant::erase");
    cloneExternalValue();
    std::vector<Variant>& elements = VariantAccess::vector(*this);
    elements.erase(elements.begin() + index);
}

// --- both ----------------------------------------------------------------------------------------

std::uint64_t Variant::size() const {
    if (m_type == Type::Map) return VariantAccess::map(*this).size();
    if (m_type == Type::Vector) return VariantAccess::vector(*this).size();
    throwInvalidOperation("Zel::Variant::size");
}

bool Variant::empty() const {
    switch (m_type) {
    case Type::Null: return true;
    case Type::String: return VariantAccess::string(*this).empty();
    case Type::Map: return VariantAccess::map(*this).empty();
    case Type::Vector: return VariantAccess::vector(*this).empty();
    default: throwInvalidOperation("Zel::Variant::empty");
    }
}

VariantIterator Variant::begin() const {
    return VariantIterator(*this, false);
}

VariantIterator Variant::end() const {
    return VariantIterator(*this, true);
}

const void* Variant::_rawData(std::int64_t* size) const {
    std::int64_t count = 0;
    const void* data = &m_value;
    switch (m_type) {
    case Type::Null: data = nullptr; break;
    case Type::Bool:
    case Type::Byte: count = 1; break;
    case Type::Short: count = 2; break;
    case Type::Int32:
    case Type::Float:
    case Type::Time:
    case Type::Date: count = 4; break;
    case Type::Int64:
    case Type::Double:
    case Type::Timestamp: count = 8; break;
    case Type::String:
        data = VariantAccess::string(*this).data();
        count = static_cast<std::int64_t>(VariantAccess::string(*this).size());
        break;
    case Type::Binary: {
        const LongBinary& bytes = VariantAccess::binary(*this);
        data = bytes.data();
        count = bytes.size();
        break;
    }
    default: throwInvalidOperation("Zel::Variant::_rawData");
    }
    if (size) *size = count;
    return data;
}

// --- equality ------------------------------------------------------------------------------------

namespace {

// Equality of two values of the same non-map tag.
bool sameTagEqual(const Variant& a, const Variant& b) {
    std::int64_t sizeA = 0;
    std::int64_t sizeB = 0;
    switch (a.type()) {
    case Variant::Type::Null: return true;
    case Variant::Type::Float: {
        const float x = a;
        const float y = b;
        return x == y; // false for NaN
    }
    case Variant::Type::Double: {
        const double x = a;
        const double y = b;
        return x == y;
    }
    case Variant::Type::String: return VariantAccess::string(a) == VariantAccess::string(b);
    case Variant::Type::Bool:
    case Variant::Type::Byte:
    case Variant::Type::Short:
    case Variant::Type::Int32:
    case Variant::Type::Int64:
    case Variant::Type::Time:
    case Variant::Type::Date:
    case Variant::Type::Timestamp: {
        const void* x = a._rawData(&sizeA);
        const void* y = b._rawData(&sizeB);
        return std::memcmp(x, y, static_cast<std::size_t>(sizeA)) == 0;
    }
    default: throw VariantInvalidOperationException("Zel::Variant::operator ==", a);
    }
}

} // namespace

bool Variant::operator==(const Variant& other) const {
    if (m_type != other.m_type) return false;
    if (m_type != Type::Map) return sameTagEqual(*this, other);
    if (VariantAccess::map(*this).size() != VariantAccess::map(other).size()) return false;

    // Nested maps are compared from an explicit stack so that depth never exhausts the call stack.
    using Cursor = Detail::VariantMap::Cursor;
    std::vector<std::pair<Cursor, Cursor>> stack;
    stack.emplace_back(VariantAccess::map(*this).begin(), VariantAccess::map(other).begin());
    while (!stack.empty()) {
        auto& [left, right] = stack.back();
        if (left.atEnd()) {
            stack.pop_back();
            continue;
        }
        const Detail::VariantMap::Entry& a = left.entry();
        const Detail::VariantMap::Entry& b = right.entry();
        left.next();
        right.next();
        if (a.first != b.first || a.second.m_type != b.second.m_type) return false;
        if (a.second.m_type != Type::Map) {
            if (!sameTagEqual(a.second, b.second)) return false;
            continue;
        }
        if (VariantAccess::map(a.second).size() != VariantAccess::map(b.second).size()) return false;
        stack.emplace_back(VariantAccess::map(a.second).begin(), VariantAccess::map(b.second).begin());
    }
    return true;
}

} // namespace Zel
