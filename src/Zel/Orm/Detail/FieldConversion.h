#pragma once

#include <Zel/Date.h>
#include <Zel/DateTime.h>
#include <Zel/LongBinary.h>
#include <Zel/Orm/Exception.h>
#include <Zel/Variant.h>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

// Between a field's value and the Variant a Db::Command binds or a Db::Recordset reads, plus the
// column type a schema gives it. NULL reads as the type's empty value (0, "", a null date), except
// into std::optional, where it is the empty optional. Engines differ in the integer width they
// report (a COUNT or a GEN_ID is 64-bit, an INTEGER column 32-bit), so integers convert from any
// integer tag. Nothing is cut silently: a value a field cannot hold throws Exception "ORM: value does
// not fit the field | value=%s | field=%s".
namespace Zel::Orm::Detail {

// A value a field cannot hold as it is (a fraction into an integer, a number past its range, text
// that is no number) is refused rather than cut.
[[noreturn]] inline void doesNotFit(const Variant& value, std::string_view field) {
    std::string shown = value.isString() ? static_cast<std::string>(value) : value.toJson();
    if (shown.size() > 1000) shown.resize(1000);
    throw Exception("ORM: value does not fit the field | value=" + shown + " | field=" + std::string(field));
}

inline double toDouble(const Variant& value) {
    if (value.type() == Variant::Type::String) {
        const std::string text = static_cast<std::string>(value);
        double result = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
        if (text.empty() || error != std::errc() || end != text.data() + text.size())
            doesNotFit(value, "double");
        return result;
    }
    if (value.type() == Variant::Type::Int64) return static_cast<double>(static_cast<std::int64_t>(value));
    return static_cast<double>(value);
}

inline std::int64_t toInt64(const Variant& value) {
    switch (value.type()) {
    case Variant::Type::Int64:
        return static_cast<std::int64_t>(value);
    case Variant::Type::Double:
    case Variant::Type::Float: {
        const double number = static_cast<double>(value);
        // 2^63 is the first double past the range; every double below it in magnitude is exact.
        if (!(number >= -9223372036854775808.0 && number < 9223372036854775808.0) ||
            number != std::trunc(number))
            doesNotFit(value, "integer");
        return static_cast<std::int64_t>(number);
    }
    case Variant::Type::String: {
        const std::string text = static_cast<std::string>(value);
        std::int64_t result = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), result);
        if (text.empty() || error != std::errc() || end != text.data() + text.size())
            doesNotFit(value, "integer");
        return result;
    }
    default:
        return static_cast<int>(value);
    }
}

template <class T>
T toInteger(const Variant& value) {
    const std::int64_t number = toInt64(value);
    if (number < std::numeric_limits<T>::min() || number > std::numeric_limits<T>::max())
        doesNotFit(value, sizeof(T) == 2 ? "short" : "int");
    return static_cast<T>(number);
}

template <class T>
struct FieldTraits;

template <>
struct FieldTraits<bool> {
    static constexpr std::string_view sqlType = "BOOLEAN";
    static Variant toVariant(bool value) { return Variant(value); }
    static bool fromVariant(const Variant& value) {
        return value.type() == Variant::Type::Bool ? static_cast<bool>(value) : toInt64(value) != 0;
    }
};

template <>
struct FieldTraits<short> {
    static constexpr std::string_view sqlType = "SMALLINT";
    static Variant toVariant(short value) { return Variant(value); }
    static short fromVariant(const Variant& value) { return toInteger<short>(value); }
};

template <>
struct FieldTraits<int> {
    static constexpr std::string_view sqlType = "INTEGER";
    static Variant toVariant(int value) { return Variant(value); }
    static int fromVariant(const Variant& value) { return toInteger<int>(value); }
};

template <>
struct FieldTraits<std::int64_t> {
    static constexpr std::string_view sqlType = "BIGINT";
    static Variant toVariant(std::int64_t value) { return Variant(value); }
    static std::int64_t fromVariant(const Variant& value) { return toInt64(value); }
};

template <>
struct FieldTraits<double> {
    static constexpr std::string_view sqlType = "DOUBLE PRECISION";
    static Variant toVariant(double value) { return Variant(value); }
    static double fromVariant(const Variant& value) { return toDouble(value); }
};

template <>
struct FieldTraits<std::string> {
    static constexpr std::string_view sqlType = "VARCHAR(255)";
    static Variant toVariant(const std::string& value) { return Variant(value); }
    static std::string fromVariant(const Variant& value) { return static_cast<std::string>(value); }
};

template <>
struct FieldTraits<Date> {
    static constexpr std::string_view sqlType = "DATE";
    static Variant toVariant(Date value) { return Variant(value); }
    static Date fromVariant(const Variant& value) { return static_cast<Date>(value); }
};

template <>
struct FieldTraits<DateTime> {
    static constexpr std::string_view sqlType = "TIMESTAMP";
    static Variant toVariant(DateTime value) { return Variant(value); }
    static DateTime fromVariant(const Variant& value) { return static_cast<DateTime>(value); }
};

template <>
struct FieldTraits<LongBinary> {
    static constexpr std::string_view sqlType = "BLOB SUB_TYPE BINARY";
    static Variant toVariant(const LongBinary& value) { return Variant(value); }
    static LongBinary fromVariant(const Variant& value) {
        switch (value.type()) {
        case Variant::Type::Null:
            return LongBinary();
        case Variant::Type::Binary:
            return value.binary();
        default: {
            const std::string bytes = static_cast<std::string>(value);
            return LongBinary(bytes.data(), static_cast<std::int32_t>(bytes.size()));
        }
        }
    }
};

template <class T>
struct FieldTraits<std::optional<T>> {
    static constexpr std::string_view sqlType = FieldTraits<T>::sqlType;
    static Variant toVariant(const std::optional<T>& value) {
        return value ? FieldTraits<T>::toVariant(*value) : Variant();
    }
    static std::optional<T> fromVariant(const Variant& value) {
        if (value.isNull()) return std::nullopt;
        return FieldTraits<T>::fromVariant(value);
    }
};

} // namespace Zel::Orm::Detail
