#include <Zel/ArgumentException.h>
#include <Zel/Console/Detail/Values.h>
#include <Zel/Console/Option.h>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace Zel::Console {

namespace Detail {

bool normalizeValue(ValueType type, std::string_view text, std::string& out) {
    switch (type) {
    case ValueType::Integer: {
        std::int64_t value = 0;
        const auto* begin = text.data();
        if (!text.empty() && text.front() == '+') ++begin;
        const auto [end, ec] = std::from_chars(begin, text.data() + text.size(), value);
        if (ec != std::errc() || end != text.data() + text.size() || begin == end) return false;
        out = std::to_string(value);
        return true;
    }
    case ValueType::Double: {
        const std::string copy(text);
        char* end = nullptr;
        const double value = std::strtod(copy.c_str(), &end);
        if (copy.empty() || end != copy.c_str() + copy.size() || !std::isfinite(value)) return false;
        out = copy;
        return true;
    }
    case ValueType::Boolean: {
        std::string lower(text);
        std::transform(lower.begin(), lower.end(), lower.begin(),
                       [](unsigned char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c); });
        if (lower == "true" || lower == "yes" || lower == "on" || lower == "1")
            out = "true";
        else if (lower == "false" || lower == "no" || lower == "off" || lower == "0")
            out = "false";
        else
            return false;
        return true;
    }
    case ValueType::Flag:
    case ValueType::String:
    case ValueType::List:
        out = std::string(text);
        return true;
    }
    return false;
}

const char* typeName(ValueType type) noexcept {
    switch (type) {
    case ValueType::Integer:
        return "integer";
    case ValueType::Double:
        return "number";
    case ValueType::Boolean:
        return "boolean";
    case ValueType::Flag:
        return "flag";
    case ValueType::String:
    case ValueType::List:
        break;
    }
    return "text";
}

std::size_t editDistance(std::string_view a, std::string_view b) {
    const std::size_t columns = b.size() + 1;
    std::vector<std::size_t> d((a.size() + 1) * columns);
    auto at = [&](std::size_t i, std::size_t j) -> std::size_t& { return d[i * columns + j]; };
    for (std::size_t i = 0; i <= a.size(); ++i)
        at(i, 0) = i;
    for (std::size_t j = 0; j <= b.size(); ++j)
        at(0, j) = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t cost = a[i - 1] == b[j - 1] ? 0 : 1;
            at(i, j) = std::min({at(i - 1, j) + 1, at(i, j - 1) + 1, at(i - 1, j - 1) + cost});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                at(i, j) = std::min(at(i, j), at(i - 2, j - 2) + 1);
        }
    }
    return at(a.size(), b.size());
}

} // namespace Detail

Option::Option(std::string longName, ValueType type, std::string help)
    : m_longName(std::move(longName)), m_type(type), m_help(std::move(help)) {}

Option& Option::shortName(char name) {
    m_shortName = name;
    return *this;
}

Option& Option::defaultValue(std::string value) {
    std::string normalized;
    // A default that could never be parsed is a bug of the program, caught at declaration.
    if (m_type == ValueType::Flag || !Detail::normalizeValue(m_type, value, normalized)) {
        throw ArgumentException("Invalid default value | option=--" + m_longName + " | value=" + value);
    }
    m_default = std::move(normalized);
    return *this;
}

Option& Option::required(bool isRequired) {
    m_required = isRequired;
    return *this;
}

Option& Option::valueName(std::string name) {
    m_valueName = std::move(name);
    return *this;
}

Option& Option::valueCount(std::size_t minimum, std::size_t maximum) {
    if (m_type != ValueType::List || minimum == 0 || maximum < minimum)
        throw ArgumentException("Invalid value count | option=--" + m_longName);
    m_minimumValues = minimum;
    m_maximumValues = maximum;
    return *this;
}

std::string Option::placeholder() const {
    if (m_type == ValueType::Flag) return {};
    const std::string names = m_valueName.empty() ? std::string(Detail::typeName(m_type)) : m_valueName;
    if (m_maximumValues == 1) return "<" + names + ">";
    // One name per value, separated by spaces; the last one stands for the rest.
    std::string out;
    std::size_t start = 0;
    for (std::size_t value = 0; value < m_maximumValues; ++value) {
        const std::size_t space = names.find(' ', start);
        const bool optional = value >= m_minimumValues;
        if (!out.empty()) out += ' ';
        out += optional ? "[<" : "<";
        out.append(names, start, space == std::string::npos ? space : space - start);
        out += optional ? ">]" : ">";
        if (space != std::string::npos) start = space + 1;
    }
    return out;
}

} // namespace Zel::Console
