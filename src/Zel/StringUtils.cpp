#include <Zel/StringUtils.h>
#include <limits>
#include <stdexcept>

namespace Zel::StringUtils {

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

int digitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'z') return c - 'a' + 10;
    if (c >= 'A' && c <= 'Z') return c - 'A' + 10;
    return 99;
}

struct Parsed {
    bool negative = false;
    bool overflow = false;
    unsigned long long magnitude = 0;
    std::size_t end = 0;
    bool anyDigit = false;
};

// The common scanner behind stoi and stoull: white space, sign, an optional 0x prefix for base
// 16, then digits until the first byte that is not one.
Parsed scan(std::string_view text, int base) {
    Parsed result;
    std::size_t i = 0;
    while (i < text.size() && isSpace(text[i]))
        ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        result.negative = text[i] == '-';
        ++i;
    }
    if (base == 16 && i + 2 < text.size() && text[i] == '0' && (text[i + 1] == 'x' || text[i + 1] == 'X') &&
        digitValue(text[i + 2]) < 16) {
        i += 2;
    }
    const unsigned long long limit = std::numeric_limits<unsigned long long>::max();
    for (; i < text.size(); ++i) {
        const int digit = digitValue(text[i]);
        if (digit >= base) break;
        result.anyDigit = true;
        if (result.magnitude > (limit - static_cast<unsigned>(digit)) / static_cast<unsigned>(base)) {
            result.overflow = true;
        } else {
            result.magnitude = result.magnitude * static_cast<unsigned>(base) + static_cast<unsigned>(digit);
        }
    }
    result.end = i;
    return result;
}

} // namespace

int stoi(std::string_view text, std::size_t* consumed, int base) {
    const Parsed parsed = scan(text, base);
    if (!parsed.anyDigit) throw std::invalid_argument("invalid stoi argument");
    const unsigned long long maxMagnitude =
        parsed.negative ? static_cast<unsigned long long>(std::numeric_limits<int>::max()) + 1
                        : static_cast<unsigned long long>(std::numeric_limits<int>::max());
    if (parsed.overflow || parsed.magnitude > maxMagnitude)
        throw std::out_of_range("stoi argument out of range");
    if (consumed) *consumed = parsed.end;
    const long long value = parsed.negative ? -static_cast<long long>(parsed.magnitude)
                                            : static_cast<long long>(parsed.magnitude);
    return static_cast<int>(value);
}

unsigned long long stoull(std::string_view text, std::size_t* consumed, int base) {
    const Parsed parsed = scan(text, base);
    if (!parsed.anyDigit) throw std::invalid_argument("invalid stoull argument");
    if (parsed.overflow) throw std::out_of_range("stoull argument out of range");
    if (consumed) *consumed = parsed.end;
    return parsed.negative ? 0ULL - parsed.magnitude : parsed.magnitude;
}

std::string toUpper(std::string_view text) {
    std::string result(text);
    for (char& c : result) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return result;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char x = a[i];
        char y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

std::string_view trimBlanks(std::string_view text) noexcept {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

int hexDigitValue(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

} // namespace Zel::StringUtils
