#pragma once

#include <Zel/Date.h>
#include <Zel/DateTime.h>
#include <Zel/Detail/ExtValue.h>
#include <Zel/LongBinary.h>
#include <Zel/Time.h>
#include <Zel/VariantIterator.h>

#include <concepts>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Zel {

namespace Detail {
class VariantAccess;
}

// The library's one dynamic value: null, bool, integers, floating point, date, time, timestamp,
// string, binary, map (string keys in byte-wise order) or vector.
//
// A Variant is three words: the pointer of its one virtual operation (toJson), a type tag and a
// value word. Scalars live in the value word and never allocate. Strings, binaries, maps and
// vectors live in a reference-counted payload that copies share: copying any Variant costs at most
// one atomic increment, and a shared payload is cloned only when a holder changes it (setAt,
// push_back, erase, non-const binary()). One exception is deliberate: assigning text to a Variant
// that already holds a string overwrites the shared payload, so every copy sees the new text.
//
// Thread safety: distinct Variants sharing a payload may be copied, read and destroyed on different
// threads at once. One Variant must not be changed while another thread reads or changes it.
//
// Exceptions: a wrong-type use throws VariantInvalidOperationException and leaves the Variant as it
// was; missing keys and indexes throw GenericException.
//
// toJson is virtual although nothing may derive from Variant: the layout of the vtable pointer,
// tag and value word is what modules built against the library expect, so the one virtual
// operation stays. `final` lets the compiler call it directly wherever the static type is known.
class ZEL_API Variant final {
public:
    enum class Type : std::int32_t {
        Null = 0,
        Bool = 1,
        Byte = 2,
        Short = 3,
        Int32 = 4,
        Int64 = 5,
        Float = 6,
        Double = 7,
        Time = 8,
        Date = 9,
        String = 10,
        Reserved = 11, // no payload type exists for it; kept free and treated as payload-holding
        Binary = 12,
        Timestamp = 13,
        Map = 14,
        Vector = 15,
    };

    static constexpr bool hasExternalValue(Type type) noexcept {
        return static_cast<std::int32_t>(type) > 9 && type != Type::Timestamp;
    }

    // --- construction -------------------------------------------------------------------------
    Variant() noexcept { m_value.i64 = 0; }
    // An empty value of that type: zero scalars, a fresh empty string, buffer, map or vector.
    explicit Variant(Type type);
    static Variant makeMap();
    static Variant makeVector();

    Variant(const Variant& other) noexcept : m_type(other.m_type), m_value(other.m_value) { addReference(); }
    Variant(Variant&& other) noexcept : m_type(other.m_type), m_value(other.m_value) {
        other.m_type = Type::Null;
        other.m_value.i64 = 0;
    }
    ~Variant() { release(); }

    Variant(std::nullptr_t) noexcept : Variant() {}
    Variant(bool value) noexcept : m_type(Type::Bool) { m_value.i64 = 0, m_value.b = value; }
    Variant(unsigned char value) noexcept : m_type(Type::Byte) { m_value.i64 = 0, m_value.u8 = value; }
    Variant(short value) noexcept : m_type(Type::Short) { m_value.i64 = 0, m_value.i16 = value; }
    Variant(unsigned short value) noexcept : m_type(Type::Int32) { m_value.i64 = 0, m_value.i32 = value; }
    Variant(int value) noexcept : m_type(Type::Int32) { m_value.i64 = 0, m_value.i32 = value; }
    Variant(unsigned int value) noexcept : m_type(Type::Int64) { m_value.i64 = value; }
    Variant(std::int64_t value) noexcept : m_type(Type::Int64) { m_value.i64 = value; }
    template <std::same_as<long long> T>
        requires(!std::same_as<long long, std::int64_t>)
    Variant(T value) noexcept : m_type(Type::Int64) {
        m_value.i64 = value;
    }
    // No tag holds an unsigned 64-bit value: convert explicitly to std::int64_t or double.
    Variant(unsigned long) = delete;
    Variant(unsigned long long) = delete;
    Variant(float value) noexcept : m_type(Type::Float) { m_value.i64 = 0, m_value.f = value; }
    Variant(double value) noexcept : m_type(Type::Double) { m_value.d = value; }
    // Null dates, times and timestamps make a null Variant.
    Variant(Zel::Time value) noexcept;
    Variant(Zel::Date value) noexcept;
    Variant(Zel::DateTime value) noexcept;
    Variant(const std::string& value);
    Variant(std::string&& value);
    Variant(std::string_view value);
    Variant(const char* value);
    Variant(char* value) : Variant(static_cast<const char*>(value)) {}
    // Any other pointer would silently become a bool.
    template <class T>
    Variant(T*) = delete;
    Variant(const LongBinary& value);
    Variant(LongBinary&& value);

    Variant& operator=(const Variant& other) noexcept;
    Variant& operator=(Variant&& other) noexcept {
        if (this != &other) {
            release();
            m_type = other.m_type;
            m_value = other.m_value;
            other.m_type = Type::Null;
            other.m_value.i64 = 0;
        }
        return *this;
    }
    Variant& operator=(std::nullptr_t) noexcept;
    Variant& operator=(bool value) noexcept;
    Variant& operator=(unsigned char value) noexcept;
    Variant& operator=(short value) noexcept;
    Variant& operator=(unsigned short value) noexcept;
    Variant& operator=(int value) noexcept;
    Variant& operator=(unsigned int value) noexcept;
    Variant& operator=(std::int64_t value) noexcept;
    template <std::same_as<long long> T>
        requires(!std::same_as<long long, std::int64_t>)
    Variant& operator=(T value) noexcept {
        return *this = static_cast<std::int64_t>(value);
    }
    Variant& operator=(unsigned long) = delete;
    Variant& operator=(unsigned long long) = delete;
    Variant& operator=(float value) noexcept;
    Variant& operator=(double value) noexcept;
    Variant& operator=(Zel::Time value) noexcept;
    Variant& operator=(Zel::Date value) noexcept;
    Variant& operator=(Zel::DateTime value) noexcept;
    // Onto a string Variant these write into the payload it has, shared or not (see class comment).
    Variant& operator=(const std::string& value);
    Variant& operator=(std::string&& value);
    Variant& operator=(std::string_view value);
    Variant& operator=(const char* value);
    Variant& operator=(char* value) { return *this = static_cast<const char*>(value); }
    template <class T>
    Variant& operator=(T*) = delete;

    Variant&& rvalue() noexcept { return static_cast<Variant&&>(*this); }

    // Becomes an empty value of `type` unless it already has that type; never converts.
    Variant& setType(Type type);
    void clear() noexcept;

    // --- queries ------------------------------------------------------------------------------
    Type type() const noexcept { return m_type; }
    bool isNull() const noexcept { return m_type == Type::Null; }
    bool isMap() const noexcept { return m_type == Type::Map; }
    bool isVector() const noexcept { return m_type == Type::Vector; }
    bool isString() const noexcept { return m_type == Type::String; }
    // byte, short, int32 and int64; bool is not an integer.
    bool isInteger() const noexcept {
        return m_type >= Type::Byte && m_type <= Type::Int64;
    }
    static std::string typeToString(Type type);

    // --- typed access (exact tag required) -----------------------------------------------------
    const Zel::Date& date() const;
    Zel::Date& date();
    const Zel::Time& time() const;
    Zel::Time& time();
    const Zel::DateTime& dateTime() const;
    const LongBinary& binary() const;
    // Makes the payload unshared first.
    LongBinary& binary();

    // --- conversions --------------------------------------------------------------------------
    operator std::string() const;
    operator bool() const;
    operator short() const;
    operator int() const;
    operator unsigned int() const;
    operator std::int64_t() const;
    operator double() const;
    operator float() const;
    operator Zel::Date() const;
    operator Zel::Time() const;
    operator Zel::DateTime() const;

    // --- maps ---------------------------------------------------------------------------------
    // Throws GenericException "Variant: key not set | key=..." for a missing key. Values are set
    // with setAt; there is no inserting operator[].
    const Variant& operator[](const std::string& key) const;
    const Variant& operator[](const char* key) const;
    Variant at(const std::string& key) const;
    Variant& setAt(std::string key, Variant value);
    Variant* find(const std::string& key);
    const Variant* find(const std::string& key) const;
    bool contains(const std::string& key) const;
    bool contains(const char* key) const { return contains(std::string(key)); }
    // Copies the value into `out` when the key is present; leaves `out` alone otherwise.
    bool contains(const std::string& key, Variant& out) const;
    // Removing a missing key is no error.
    void erase(const std::string& key);
    void erase(const char* key) { erase(std::string(key)); }

    // --- vectors ------------------------------------------------------------------------------
    // Throws GenericException "Variant: index not set | index=..." outside 0..size()-1.
    const Variant& operator[](int index) const;
    Variant& push_back(const Variant& value);
    // The source becomes null.
    Variant& push_back(Variant&& value);
    // Linear search with operator==, which throws for elements that cannot be compared.
    bool contains(const Variant& value) const;
    // The index is not checked: pass one inside the vector.
    void erase(int index);

    // --- maps and vectors ---------------------------------------------------------------------
    std::uint64_t size() const;
    bool empty() const;
    // Iterators and references into a payload stay valid while the payload is not changed.
    VariantIterator begin() const;
    VariantIterator end() const;

    template <class T = Variant>
    std::map<std::string, T> toMap() const {
        requireType(Type::Map, "Zel::Variant::toMap");
        std::map<std::string, T> result;
        for (const VariantIterator& entry : *this) result.emplace_hint(result.end(), entry.key(), static_cast<T>(entry.value()));
        return result;
    }

    template <class T = Variant>
    std::vector<T> toVector() const {
        requireType(Type::Vector, "Zel::Variant::toVector");
        std::vector<T> result;
        result.reserve(static_cast<std::size_t>(size()));
        for (const VariantIterator& element : *this) result.push_back(static_cast<T>(element.value()));
        return result;
    }

    // Raw bytes of the value for binding as a database parameter. Maps, vectors and tag 11 throw.
    const void* _rawData(std::int64_t* size) const;

    // Compact JSON. Time, date, binary, timestamp and tag 11 throw GenericException
    // "Unsupported Variant type:<name>".
    virtual std::string toJson() const;

    // Different tags are never equal; NaN is unequal to everything; maps compare entry by entry;
    // binaries, vectors and tag 11 cannot be compared and throw.
    bool operator==(const Variant& other) const;

    // The text of a string Variant without a copy. The tag is not checked: call it on strings only.
    const std::string& _string() const noexcept;

private:
    // Everything the library's own code needs of the representation goes through this one class.
    friend class Detail::VariantAccess;
    // The shared payloads (string, binary, map, vector) derive from it; see Zel/Detail.
    using ExtValue = Detail::ExtValue;

    union Value {
        bool b;
        std::uint8_t u8;
        std::int16_t i16;
        std::int32_t i32;
        std::int64_t i64;
        float f;
        double d;
        Zel::Time time;
        Zel::Date date;
        Zel::DateTime dateTime;
        ExtValue* ext;
        Value() noexcept : i64(0) {}
    };

    void addReference() const noexcept {
        if (hasExternalValue(m_type) && m_value.ext) m_value.ext->m_refCount.fetch_add(1);
    }
    void release() noexcept {
        if (hasExternalValue(m_type) && m_value.ext && m_value.ext->m_refCount.fetch_sub(1) == 1) {
            destroy(m_value.ext, m_type);
        }
    }
    static void destroy(ExtValue* payload, Type type) noexcept;
    void cloneExternalValue();
    void setText(std::string_view text);
    void setText(std::string&& text);
    [[noreturn]] void throwInvalidOperation(const char* operation) const;
    void requireType(Type type, const char* operation) const;

    Type m_type = Type::Null;
    Value m_value;
};

static_assert(sizeof(void*) != 8 || sizeof(Variant) == 24, "a Variant is the vtable pointer, the tag and one word");

} // namespace Zel
