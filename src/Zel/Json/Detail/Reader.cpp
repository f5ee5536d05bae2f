#include <Zel/Detail/Simd.h>
#include <Zel/Detail/VariantAccess.h>
#include <Zel/Json/Detail/DecimalToDouble.h>
#include <Zel/Json/Detail/Reader.h>
#include <Zel/Json/ParserException.h>
#include <bit>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>

namespace Zel::Json::Detail {

namespace {

constexpr bool isWhiteSpace(char c) noexcept {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

constexpr bool isAboveSpace(char c) noexcept {
    return static_cast<unsigned char>(c) > ' ';
}

constexpr bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

constexpr bool isNumberByte(char c) noexcept {
    return isDigit(c) || c == '+' || c == '-' || c == '.' || c == 'e' || c == 'E';
}

#if ZEL_SIMD_SSE2

inline unsigned quoteOrBackslashMask(const char* at) noexcept {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const __m128i quotes = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('"'));
    const __m128i backslashes = _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\'));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(quotes, backslashes)));
}

inline unsigned notWhiteSpaceMask(const char* at) noexcept {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
    const __m128i spaces =
        _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(' ')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n')));
    const __m128i others =
        _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\r')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\t')));
    return ~static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(spaces, others))) & 0xFFFFu;
}

#else

// True when any byte of the word is a double quote or a backslash.
inline bool hasQuoteOrBackslash(std::uint64_t word) noexcept {
    constexpr std::uint64_t ones = 0x0101010101010101ULL;
    constexpr std::uint64_t highs = 0x8080808080808080ULL;
    const std::uint64_t quotes = word ^ (ones * '"');
    const std::uint64_t slashes = word ^ (ones * '\\');
    return (((quotes - ones) & ~quotes) | ((slashes - ones) & ~slashes)) & highs;
}

#endif

// The first double quote or backslash in [p, end), or end. Reads nothing at or past `end`: the
// caller's text need not be padded.
inline const char* findQuoteOrBackslash(const char* p, const char* end) noexcept {
#if ZEL_SIMD_SSE2
    while (end - p >= 16) {
        if (const unsigned mask = quoteOrBackslashMask(p)) return p + std::countr_zero(mask);
        p += 16;
    }
#else
    while (end - p >= 8) {
        if (hasQuoteOrBackslash(Zel::Detail::loadLittle64(p))) break;
        p += 8;
    }
#endif
    while (p < end && *p != '"' && *p != '\\')
        ++p;
    return p;
}

// The first byte in [p, end) that is not white space, or end.
const char* skipWhiteSpaceRun(const char* p, const char* end) noexcept {
#if ZEL_SIMD_SSE2
    // Indentation comes in runs of a newline and many spaces.
    while (end - p >= 16) {
        if (const unsigned mask = notWhiteSpaceMask(p)) return p + std::countr_zero(mask);
        p += 16;
    }
#endif
    while (p < end && isWhiteSpace(*p))
        ++p;
    return p;
}

// Eight digits at once: numbers in real documents (ids, prices, coordinates) are mostly runs of
// eight digits or more.
inline std::uint64_t loadWord(const char* at) noexcept {
    return Zel::Detail::loadLittle64(at);
}

struct DigitRun {
    int count;           // leading digits of the word, 0 to 8
    std::uint64_t value; // their value
};

constexpr std::uint64_t powersOfTen[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};

constexpr DigitRun digitRun(std::uint64_t word) noexcept {
    // A byte is a digit when its high nibble is 3 and adding 6 keeps it 3. Carries and borrows
    // only travel from a non-digit towards later bytes, past the first non-digit.
    constexpr std::uint64_t highNibbles = 0xF0F0F0F0F0F0F0F0ULL;
    const std::uint64_t nonDigits =
        ((word & highNibbles) | (((word + 0x0606060606060606ULL) & highNibbles) >> 4)) ^
        0x3333333333333333ULL;
    const int count = nonDigits ? std::countr_zero(nonDigits) >> 3 : 8;
    if (count == 0) return DigitRun{0, 0};
    // Shifting the digits to the top leaves zeros before them, so eight digits are combined
    // whatever the count: pairs, then quadruples, then the whole.
    std::uint64_t digits = (word - 0x3030303030303030ULL) << (64 - 8 * count);
    digits = digits * 10 + (digits >> 8);
    constexpr std::uint64_t pairMask = 0x000000FF000000FFULL;
    constexpr std::uint64_t byHundreds = 100 + (1000000ULL << 32);
    constexpr std::uint64_t byTenThousands = 1 + (10000ULL << 32);
    return DigitRun{count,
                    ((digits & pairMask) * byHundreds + ((digits >> 16) & pairMask) * byTenThousands) >> 32};
}

static_assert(digitRun(0x3837363534333231ULL).value == 12345678, "the first digit is the low byte");
static_assert(digitRun(0x3837362C34333231ULL).count == 4 && digitRun(0x3837362C34333231ULL).value == 1234);
static_assert(digitRun(0x383736353433322EULL).count == 0);

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

Variant integerValue(std::uint64_t magnitude, bool negative) {
    const std::uint64_t limit = negative ? std::uint64_t{1} << 63 : (std::uint64_t{1} << 63) - 1;
    if (magnitude > limit) throw ParserException("Invalid integer format");
    const std::int64_t value =
        negative ? static_cast<std::int64_t>(0 - magnitude) : static_cast<std::int64_t>(magnitude);
    if (value >= std::numeric_limits<std::int32_t>::min() &&
        value <= std::numeric_limits<std::int32_t>::max()) {
        return Variant(static_cast<std::int32_t>(value));
    }
    return Variant(value);
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

void Reader::throwInvalidCharacter(const char* at) {
    // The byte at `at`: after a consumed byte that was refused, the next one.
    m_current = at;
    const int byte = at < m_end ? static_cast<unsigned char>(*at) : 0;
    char text[80];
    std::snprintf(text, sizeof text, "Invalid character #%d at %td", byte, at - m_start);
    throw GenericException(text);
}

inline const char* Reader::skipWhiteSpace(const char* p) const {
    // Compact text has no white space at all, and every byte that is white space is below '!'.
    if (p != m_end && isAboveSpace(*p)) return p;
    p = skipWhiteSpaceRun(p, m_end);
    if (p == m_end) throwUnexpectedEnd();
    return p;
}

const char* Reader::readLiteral(const char* p, const char* literal, std::size_t length) {
    if (static_cast<std::size_t>(m_end - p) >= length && std::memcmp(p, literal, length) == 0)
        return p + length;
    // Letter by letter, to report the first wrong one.
    for (std::size_t i = 0; i < length; ++i) {
        if (p == m_end) throwUnexpectedEnd();
        if (*p++ != literal[i]) throwInvalidCharacter(p);
    }
    return p;
}

// Called at a backslash in a string body; appends the rest of the body, escapes resolved, and
// returns the position after the closing quote.
const char* Reader::readEscaped(const char* p, std::string& out) {
    for (;;) {
        if (++p == m_end) throwUnexpectedEnd();
        const char letter = *p++;
        if (letter == 'u') {
            unsigned code = 0;
            for (int i = 0; i < 4; ++i) {
                if (p == m_end) throwUnexpectedEnd();
                const int digit = hexValue(*p++);
                if (digit < 0) throwInvalidCharacter(p);
                code = code << 4 | static_cast<unsigned>(digit);
            }
            appendUtf8(out, code);
        } else if (!appendSimpleEscape(out, letter)) {
            throwInvalidCharacter(p);
        }
        const char* const run = p;
        p = findQuoteOrBackslash(p, m_end);
        if (p == m_end) throwUnexpectedEnd();
        out.append(run, p);
        if (*p == '"') return p + 1;
    }
}

// Called at the opening quote.
const char* Reader::readStringValue(const char* p, Variant& out) {
    const char* const body = p + 1;
    p = findQuoteOrBackslash(body, m_end);
    if (p == m_end) throwUnexpectedEnd();
    if (*p == '"') {
        out = Variant(std::string_view(body, static_cast<std::size_t>(p - body)));
        return p + 1;
    }
    // Escapes are resolved into the scratch text, which is then copied once at its final size.
    std::string& text = m_scratch.text;
    text.assign(body, p);
    p = readEscaped(p, text);
    out = Variant(std::string(text));
    return p;
}

// Reads a key and its colon into a new pending member. Called at the first byte after the white
// space before the key.
const char* Reader::readKey(const char* p) {
    if (*p != '"') throwInvalidCharacter(p);
    const char* const body = p + 1;
    p = findQuoteOrBackslash(body, m_end);
    if (p == m_end) throwUnexpectedEnd();
    Zel::Detail::VariantMap::Entry& member = m_scratch.members.emplace_back(
        std::piecewise_construct, std::forward_as_tuple(body, p), std::forward_as_tuple());
    p = *p == '"' ? p + 1 : readEscaped(p, member.first);
    p = skipWhiteSpace(p);
    if (*p++ != ':') throwInvalidCharacter(p);
    return p;
}

const char* Reader::readNumber(const char* p, Variant& out) {
    const char* const first = p;
    const bool negative = *p == '-';
    if (negative) ++p;
    const char* const digits = p;
    // Nineteen digits cannot wrap 64 bits: the integers of real documents need no overflow check.
    const char* const stop = m_end - p > 19 ? p + 19 : m_end;
    std::uint64_t magnitude = 0;
    while (stop - p >= 8) {
        const DigitRun run = digitRun(loadWord(p));
        magnitude = magnitude * powersOfTen[run.count] + run.value;
        p += run.count;
        if (run.count < 8) break;
    }
    while (p < stop && isDigit(*p))
        magnitude = magnitude * 10 + static_cast<unsigned>(*p++ - '0');
    if (p == m_end || !isNumberByte(*p)) {
        if (p == digits) throw ParserException("Invalid integer format");
        out = integerValue(magnitude, negative);
        return p;
    }
    if (isDigit(*p)) return readLongInteger(first, digits, p, negative, out);
    if (*p == '+' || *p == '-') return readNumberRun(first, p, false, out);
    return readFraction(first, p, magnitude, p != digits, negative, out);
}

// A fraction or an exponent follows the integer digits [.., p). The significant digits gather
// into 64 bits and the rest into a power of ten for decimalToDouble; from_chars reads the text
// itself in every case that does not cover, so both ways give the same double.
const char* Reader::readFraction(const char* first, const char* p, std::uint64_t mantissa, bool hasDigits,
                                 bool negative, Variant& out) {
    constexpr std::uint64_t roomForDigit = 1'000'000'000'000'000'000ULL; // below it, one more fits
    constexpr std::uint64_t roomForEightDigits = 100'000'000'000ULL;
    long long exponent = 0;
    bool truncated = false;
    if (*p == '.') {
        const char* const fraction = ++p;
        while (mantissa < roomForEightDigits && m_end - p >= 8) {
            const DigitRun run = digitRun(loadWord(p));
            mantissa = mantissa * powersOfTen[run.count] + run.value;
            p += run.count;
            exponent -= run.count;
            if (run.count < 8) break;
        }
        for (; p < m_end && isDigit(*p); ++p) {
            if (mantissa < roomForDigit) {
                mantissa = mantissa * 10 + static_cast<unsigned>(*p - '0');
                --exponent;
            } else {
                truncated = true;
            }
        }
        hasDigits = hasDigits || p != fraction;
    }
    if (p < m_end && (*p == 'e' || *p == 'E')) {
        ++p;
        bool negativeExponent = false;
        if (p < m_end && (*p == '+' || *p == '-')) negativeExponent = *p++ == '-';
        const char* const exponentDigits = p;
        long long written = 0;
        for (; p < m_end && isDigit(*p); ++p) {
            if (written < 1'000'000) written = written * 10 + (*p - '0');
        }
        if (p == exponentDigits) hasDigits = false; // from_chars refuses an exponent without digits
        exponent += negativeExponent ? -written : written;
    }
    if (p < m_end && isNumberByte(*p)) return readNumberRun(first, p, true, out);
    double value;
    if (hasDigits && !truncated && exponent >= -1000 && exponent <= 1000 &&
        decimalToDouble(mantissa, static_cast<int>(exponent), value)) {
        out = Variant(negative ? -value : value);
    } else {
        out = readFloat(first, p);
    }
    return p;
}

// More than 19 digits: beyond that only leading zeros keep an integer in range.
const char* Reader::readLongInteger(const char* first, const char* digits, const char* p, bool negative,
                                    Variant& out) {
    while (p < m_end && isDigit(*p))
        ++p;
    if (p < m_end && isNumberByte(*p)) return readNumberRun(first, p, false, out);
    const char* significant = digits;
    while (significant < p && *significant == '0')
        ++significant;
    if (p - significant > 20 ||
        (p - significant == 20 && std::string_view(significant, 20) > "18446744073709551615")) {
        throw ParserException("Invalid integer format");
    }
    std::uint64_t magnitude = 0;
    for (const char* d = significant; d < p; ++d)
        magnitude = magnitude * 10 + static_cast<unsigned>(*d - '0');
    out = integerValue(magnitude, negative);
    return p;
}

// The general case: the whole run of number bytes from `first`, of which [first, p) is read;
// `isFloat` tells whether that part held a point or an exponent letter.
const char* Reader::readNumberRun(const char* first, const char* p, bool isFloat, Variant& out) {
    for (; p < m_end && isNumberByte(*p); ++p) {
        if (*p == '.' || *p == 'e' || *p == 'E') isFloat = true;
    }
    if (!isFloat) throw ParserException("Invalid integer format");
    out = readFloat(first, p);
    return p;
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

Variant Reader::closeObject(std::size_t start) {
    std::vector<Zel::Detail::VariantMap::Entry>& members = m_scratch.members;
    Variant map = Zel::Detail::VariantAccess::adoptMap(
        Zel::Detail::VariantMap::fromUnsorted(members.data() + start, members.data() + members.size()));
    members.erase(members.begin() + static_cast<std::ptrdiff_t>(start), members.end());
    return map;
}

Variant Reader::closeVector(std::size_t start) {
    std::vector<Variant>& values = m_scratch.values;
    const auto from = values.begin() + static_cast<std::ptrdiff_t>(start);
    Variant vector = Zel::Detail::VariantAccess::adoptVector(
        std::vector<Variant>(std::make_move_iterator(from), std::make_move_iterator(values.end())));
    values.erase(from, values.end());
    return vector;
}

Reader::~Reader() {
    // Capacities that only a big document needs are not worth keeping for the rest of the thread.
    constexpr std::size_t keep = 4096;
    const auto reset = [](auto& stack, std::size_t limit) {
        stack.clear();
        if (stack.capacity() > limit) std::remove_reference_t<decltype(stack)>().swap(stack);
    };
    reset(m_scratch.frames, keep);
    reset(m_scratch.members, keep);
    reset(m_scratch.values, keep);
    reset(m_scratch.text, 16 * keep);
}

Variant Reader::parse() {
    // Iterative descent: open containers live on the frame stack and their finished members and
    // elements on the scratch stacks, so that nesting depth costs heap, not stack.
    std::vector<Frame>& frames = m_scratch.frames;
    std::vector<Zel::Detail::VariantMap::Entry>& members = m_scratch.members;
    std::vector<Variant>& values = m_scratch.values;
    const char* p = m_current;
    Variant value;
    for (;;) {
        p = skipWhiteSpace(p);
        switch (*p) {
        case '{':
            p = skipWhiteSpace(p + 1);
            if (*p == '}') {
                ++p;
                value = Variant::makeMap();
                break;
            }
            frames.push_back(Frame{true, members.size()});
            p = readKey(p);
            continue;
        case '[':
            p = skipWhiteSpace(p + 1);
            if (*p == ']') {
                ++p;
                if (!m_scratch.emptyVector.isVector()) m_scratch.emptyVector = Variant::makeVector();
                value = m_scratch.emptyVector;
                break;
            }
            frames.push_back(Frame{false, values.size()});
            continue;
        case '"':
            p = readStringValue(p, value);
            break;
        case 't':
            p = readLiteral(p, "true", 4);
            value = Variant(true);
            break;
        case 'f':
            p = readLiteral(p, "false", 5);
            value = Variant(false);
            break;
        case 'n':
            p = readLiteral(p, "null", 4);
            break; // `value` is null already
        case '-':
        case '+':
        case '0':
        case '1':
        case '2':
        case '3':
        case '4':
        case '5':
        case '6':
        case '7':
        case '8':
        case '9':
            p = readNumber(p, value);
            break;
        default:
            throwInvalidCharacter(p);
        }

        // A value is complete: hand it to the enclosing container, closing every container that
        // ends right after it.
        for (;;) {
            if (frames.empty()) {
                m_current = p;
                return value;
            }
            const Frame frame = frames.back();
            if (frame.isObject) {
                members.back().second = std::move(value);
                p = skipWhiteSpace(p);
                const char separator = *p++;
                if (separator == ',') {
                    p = skipWhiteSpace(p);
                    if (*p != '}') {
                        p = readKey(p);
                        break;
                    }
                    ++p;
                } else if (separator != '}') {
                    throwInvalidCharacter(p);
                }
                value = closeObject(frame.start);
            } else {
                values.push_back(std::move(value));
                p = skipWhiteSpace(p);
                const char separator = *p++;
                if (separator == ',') {
                    p = skipWhiteSpace(p);
                    if (*p != ']') break;
                    ++p;
                } else if (separator != ']') {
                    throwInvalidCharacter(p);
                }
                value = closeVector(frame.start);
            }
            frames.pop_back();
        }
    }
}

} // namespace Zel::Json::Detail
