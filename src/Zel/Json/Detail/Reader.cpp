#include <Zel/Json/Detail/Reader.h>
#include <Zel/Json/ParserException.h>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>

namespace Zel::Json::Detail {

namespace {

constexpr bool isWhiteSpace(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

constexpr bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

constexpr bool isNumberByte(char c) noexcept {
    return isDigit(c) || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E';
}

// True when any byte of the word is a double quote or a backslash.
inline bool hasQuoteOrBackslash(std::uint64_t word) noexcept {
    constexpr std::uint64_t ones = 0x0101010101010101ULL;
    constexpr std::uint64_t highs = 0x8080808080808080ULL;
    const std::uint64_t quotes = word ^ (ones * '"');
    const std::uint64_t slashes = word ^ (ones * '\\');
    return (((quotes - ones) & ~quotes) | ((slashes - ones) & ~slashes)) & highs;
}

// Decimal exponent of the leading significant digit of a float literal, used only to tell an
// overflowing literal from an underflowing one.
long long magnitudeOf(const char* first, const char* last) noexcept {
    const char* p = first;
    if (p < last && (*p == '-' || *p == '+')) ++p;
    long long position = 0;
    bool seenSignificant = false;
    bool afterPoint = false;
    for (; p < last && *p != 'e' && *p != 'E'; ++p) {
        if (*p == '.') {
            afterPoint = true;
        } else if (*p != '0' || seenSignificant) {
            if (!afterPoint && !seenSignificant) seenSignificant = true;
            if (!afterPoint) ++position;
            if (afterPoint && !seenSignificant) break;
        } else if (afterPoint) {
            --position;
        }
    }
    long long exponent = 0;
    const char* e = p;
    while (e < last && *e != 'e' && *e != 'E')
        ++e;
    if (e < last) {
        ++e;
        bool negative = false;
        if (e < last && (*e == '+' || *e == '-')) negative = *e++ == '-';
        for (; e < last && isDigit(*e); ++e) {
            if (exponent < 1'000'000'000) exponent = exponent * 10 + (*e - '0');
        }
        if (negative) exponent = -exponent;
    }
    return position + exponent;
}

} // namespace

int Reader::hexValue(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool Reader::appendSimpleEscape(std::string& out, char letter) {
    switch (letter) {
    case '"':
        out += '"';
        return true;
    case '/':
        out += '/';
        return true;
    case '\\':
        out += '\\';
        return true;
    case 'b':
        out += '\b';
        return true;
    case 'f':
        out += '\f';
        return true;
    case 'n':
        out += '\n';
        return true;
    case 'r':
        out += '\r';
        return true;
    case 't':
        out += '\t';
        return true;
    default:
        return false;
    }
}

void Reader::appendUtf8(std::string& out, unsigned code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | code >> 6);
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | code >> 12);
        out += static_cast<char>(0x80 | (code >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

void Reader::throwUnexpectedEnd() {
    throw ParserException("Unexpected end");
}

void Reader::throwInvalidCharacter() const {
    // The byte at the current position: after a consumed byte that was refused, the next one.
    const int byte = m_current < m_end ? static_cast<unsigned char>(*m_current) : 0;
    char text[80];
    std::snprintf(text, sizeof text, "Invalid character #%d at %td", byte, m_current - m_start);
    throw GenericException(text);
}

char Reader::skipWhiteSpace() {
    while (m_current < m_end && isWhiteSpace(*m_current))
        ++m_current;
    if (m_current == m_end) throwUnexpectedEnd();
    return *m_current;
}

void Reader::readLiteral(const char* literal, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        if (m_current == m_end) throwUnexpectedEnd();
        if (*m_current++ != literal[i]) throwInvalidCharacter();
    }
}

void Reader::readString(std::string& out) {
    ++m_current; // the opening quote
    const char* run = m_current;
    // Fast path: scan eight bytes at a time for the closing quote or a backslash.
    while (m_end - m_current >= 8) {
        std::uint64_t word;
        std::memcpy(&word, m_current, 8);
        if (hasQuoteOrBackslash(word)) break;
        m_current += 8;
    }
    while (m_current < m_end && *m_current != '"' && *m_current != '\\')
        ++m_current;
    if (m_current == m_end) throwUnexpectedEnd();
    out.assign(run, m_current);
    if (*m_current++ == '"') return;
    --m_current;
    for (;;) {
        const char c = *m_current++;
        if (c == '"') return;
        if (c == '\\') {
            if (m_current == m_end) throwUnexpectedEnd();
            const char letter = *m_current++;
            if (letter == 'u') {
                unsigned code = 0;
                for (int i = 0; i < 4; ++i) {
                    if (m_current == m_end) throwUnexpectedEnd();
                    const int digit = hexValue(*m_current++);
                    if (digit < 0) throwInvalidCharacter();
                    code = code << 4 | static_cast<unsigned>(digit);
                }
                appendUtf8(out, code);
            } else if (!appendSimpleEscape(out, letter)) {
                throwInvalidCharacter();
            }
        } else {
            // Copy the run up to the next quote or backslash at once.
            const char* start = m_current - 1;
            while (m_current < m_end && *m_current != '"' && *m_current != '\\')
                ++m_current;
            out.append(start, m_current);
        }
        if (m_current == m_end) throwUnexpectedEnd();
    }
}

Variant Reader::readNumber() {
    const char* const first = m_current;
    const char* p = first;
    const bool negative = p < m_end && *p == '-';
    if (negative) ++p;
    const char* const digits = p;
    std::uint64_t magnitude = 0;
    for (; p < m_end && isDigit(*p); ++p)
        magnitude = magnitude * 10 + static_cast<unsigned>(*p - '0');
    // Up to 19 digits cannot wrap 64 bits; beyond that only zeros may lead.
    bool overflow = false;
    if (p - digits > 19) {
        const char* significant = digits;
        while (significant < p && *significant == '0')
            ++significant;
        overflow = p - significant > 20 ||
                   (p - significant == 20 && std::string_view(significant, 20) > "18446744073709551615");
        if (!overflow) {
            magnitude = 0;
            for (const char* d = significant; d < p; ++d)
                magnitude = magnitude * 10 + static_cast<unsigned>(*d - '0');
        }
    }
    if (p < m_end && isNumberByte(*p)) {
        // A fraction, an exponent or a stray sign: take the whole run.
        bool isFloat = false;
        for (; p < m_end && isNumberByte(*p); ++p) {
            if (*p == '.' || *p == 'e' || *p == 'E') isFloat = true;
        }
        m_current = p;
        if (!isFloat) throw ParserException("Invalid integer format");
        return readFloat(first, p);
    }
    m_current = p;
    if (p == digits) throw ParserException("Invalid integer format");
    const std::uint64_t limit = negative ? std::uint64_t{1} << 63 : (std::uint64_t{1} << 63) - 1;
    if (overflow || magnitude > limit) throw ParserException("Invalid integer format");
    const std::int64_t value =
        negative ? static_cast<std::int64_t>(0 - magnitude) : static_cast<std::int64_t>(magnitude);
    if (value >= std::numeric_limits<std::int32_t>::min() &&
        value <= std::numeric_limits<std::int32_t>::max()) {
        return Variant(static_cast<std::int32_t>(value));
    }
    return Variant(value);
}

Variant Reader::readFloat(const char* first, const char* last) {
    double value = 0;
    const auto result = std::from_chars(first, last, value, std::chars_format::general);
    if (result.ec == std::errc::result_out_of_range && result.ptr == last) {
        // Overflow in either direction is refused; underflow reads as a zero of the same sign.
        if (magnitudeOf(first, last) > 0) throw ParserException("Float out of range");
        return Variant(*first == '-' ? -0.0 : 0.0);
    }
    if (result.ec != std::errc() || result.ptr != last) throw ParserException("Invalid float format");
    if (value == std::numeric_limits<double>::infinity()) throw ParserException("Float out of range");
    return Variant(value);
}

Variant Reader::readScalar(char c) {
    switch (c) {
    case '"': {
        std::string text;
        readString(text);
        return Variant(std::move(text));
    }
    case 't':
        readLiteral("true", 4);
        return Variant(true);
    case 'f':
        readLiteral("false", 5);
        return Variant(false);
    case 'n':
        readLiteral("null", 4);
        return Variant();
    default:
        if (isDigit(c) || c == '-' || c == '+') return readNumber();
        throwInvalidCharacter();
    }
}

// Reads a key and its colon into a new pending member. Called with the current byte at the key.
void Reader::readKey() {
    if (*m_current != '"') throwInvalidCharacter();
    Zel::Detail::VariantMap::Entry& member = m_members.emplace_back();
    readString(member.first);
    skipWhiteSpace();
    if (*m_current++ != ':') throwInvalidCharacter();
}

Reader::~Reader() {
    // Capacities that only a big document needs are not worth keeping for the rest of the thread.
    constexpr std::size_t keep = 4096;
    const auto reset = [](auto& stack) {
        stack.clear();
        if (stack.capacity() > keep) std::remove_reference_t<decltype(stack)>().swap(stack);
    };
    reset(m_frames);
    reset(m_members);
    reset(m_values);
}

Variant Reader::parse() {
    // Iterative descent: open containers live on m_frames and their finished members on
    // m_members / m_values, so that nesting depth costs heap, not stack.
    Variant value;
    for (;;) {
        const char c = skipWhiteSpace();
        if (c == '{') {
            ++m_current;
            if (skipWhiteSpace() == '}') {
                ++m_current;
                value = Variant::makeMap();
            } else {
                m_frames.push_back(Frame{true, m_members.size()});
                readKey();
                continue;
            }
        } else if (c == '[') {
            ++m_current;
            if (skipWhiteSpace() == ']') {
                ++m_current;
                value = Variant::makeVector();
            } else {
                m_frames.push_back(Frame{false, m_values.size()});
                continue;
            }
        } else {
            value = readScalar(c);
        }

        // A value is complete: hand it to the enclosing container, closing every container that
        // ends right after it.
        for (;;) {
            if (m_frames.empty()) return value;
            const Frame frame = m_frames.back();
            if (frame.isObject) {
                m_members.back().second = std::move(value);
                skipWhiteSpace();
                const char separator = *m_current++;
                if (separator == ',') {
                    if (skipWhiteSpace() != '}') {
                        readKey();
                        break;
                    }
                    ++m_current;
                } else if (separator != '}') {
                    throwInvalidCharacter();
                }
                value = Variant::_adoptMap(Zel::Detail::VariantMap::fromUnsorted(
                    m_members.data() + frame.start, m_members.data() + m_members.size()));
                m_members.resize(frame.start);
            } else {
                m_values.push_back(std::move(value));
                skipWhiteSpace();
                const char separator = *m_current++;
                if (separator == ',') {
                    if (skipWhiteSpace() != ']') break;
                    ++m_current;
                } else if (separator != ']') {
                    throwInvalidCharacter();
                }
                std::vector<Variant> elements(
                    std::make_move_iterator(m_values.begin() + static_cast<std::ptrdiff_t>(frame.start)),
                    std::make_move_iterator(m_values.end()));
                m_values.resize(frame.start);
                value = Variant::_adoptVector(std::move(elements));
            }
            m_frames.pop_back();
        }
    }
}

} // namespace Zel::Json::Detail
