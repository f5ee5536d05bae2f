#include <Zel/Json/Detail/Writer.h>

#include <Zel/Detail/ExtValue.h>
#include <Zel/Detail/VariantMap.h>
#include <Zel/GenericException.h>

#include <charconv>
#include <cmath>
#include <cstring>

namespace Zel::Json::Detail {

namespace {

// Per byte: 0 copy as is, 'u' write \u00XX, otherwise the letter after the backslash.
constexpr auto escapeTable = [] {
    std::array<char, 256> table{};
    for (int c = 0; c < 0x20; ++c) table[static_cast<std::size_t>(c)] = 'u';
    table['\b'] = 'b';
    table['\t'] = 't';
    table['\n'] = 'n';
    table['\f'] = 'f';
    table['\r'] = 'r';
    table['"'] = '"';
    table['\\'] = '\\';
    return table;
}();

constexpr char hexDigits[] = "0123456789ABCDEF";

} // namespace

void Writer::grow(std::size_t needed) {
    const std::size_t used = m_cursor ? static_cast<std::size_t>(m_cursor - m_buffer.data()) : 0;
    std::size_t capacity = m_buffer.size() * 2;
    if (capacity < used + needed) capacity = used + needed;
    if (capacity < 256) capacity = 256;
    m_buffer.resize(capacity);
    m_cursor = m_buffer.data() + used;
    m_limit = m_buffer.data() + m_buffer.size();
}

std::string Writer::take() {
    m_buffer.resize(m_cursor ? static_cast<std::size_t>(m_cursor - m_buffer.data()) : 0);
    m_cursor = m_limit = nullptr;
    return std::move(m_buffer);
}

namespace {

// True when any byte of the word is below 0x20, a double quote or a backslash.
inline bool needsEscape(std::uint64_t word) noexcept {
    constexpr std::uint64_t ones = 0x0101010101010101ULL;
    constexpr std::uint64_t highs = 0x8080808080808080ULL;
    const std::uint64_t quotes = word ^ (ones * '"');
    const std::uint64_t slashes = word ^ (ones * '\\');
    const std::uint64_t control = (word - ones * 0x20) & ~word; // high bit set where byte < 0x20
    return (((quotes - ones) & ~quotes) | ((slashes - ones) & ~slashes) | control) & highs;
}

} // namespace

void Writer::writeString(std::string_view text) {
    // Room for the text as it is; escapes reserve their own extra room as they come.
    reserve(text.size() + 2);
    *m_cursor++ = '"';
    const char* in = text.data();
    const char* const end = in + text.size();
    while (in < end) {
        const char* run = in;
        while (end - in >= 8) {
            std::uint64_t word;
            std::memcpy(&word, in, 8);
            if (needsEscape(word)) break;
            in += 8;
        }
        while (in < end && escapeTable[static_cast<unsigned char>(*in)] == 0) ++in;
        std::memcpy(m_cursor, run, static_cast<std::size_t>(in - run));
        m_cursor += in - run;
        if (in == end) break;
        const auto byte = static_cast<unsigned char>(*in++);
        const char escape = escapeTable[byte];
        reserve(static_cast<std::size_t>(end - in) + 8);
        *m_cursor++ = '\\';
        if (escape == 'u') {
            std::memcpy(m_cursor, "u00", 3);
            m_cursor[3] = hexDigits[byte >> 4];
            m_cursor[4] = hexDigits[byte & 0xF];
            m_cursor += 5;
        } else {
            *m_cursor++ = escape;
        }
    }
    *m_cursor++ = '"';
}

void Writer::writeDouble(double value) {
    reserve(32);
    if (!std::isfinite(value)) {
        // JSON has no spelling for NaN or infinity.
        std::memcpy(m_cursor, "null", 4);
        m_cursor += 4;
        return;
    }
    const auto result = std::to_chars(m_cursor, m_limit, value);
    // The shortest form of an integral double has no '.' or exponent and would read back as an
    // integer: keep it a double.
    bool integral = true;
    for (const char* p = m_cursor; p < result.ptr; ++p) {
        if (*p == '.' || *p == 'e') {
            integral = false;
            break;
        }
    }
    m_cursor = result.ptr;
    if (integral) {
        std::memcpy(m_cursor, ".0", 2);
        m_cursor += 2;
    }
}

template <class Integer>
void Writer::writeInteger(Integer value) {
    reserve(24);
    m_cursor = std::to_chars(m_cursor, m_limit, value).ptr;
}

// Writes a scalar or opens a container (pushing it). Reads the Variant's fields directly: this is
// the innermost loop of writing.
void Writer::writeValue(const Variant& value) {
    const Variant::Value& word = value.m_value;
    switch (value.m_type) {
    case Variant::Type::Null: writeRaw("null", 4); return;
    case Variant::Type::Bool:
        if (word.b) {
            writeRaw("true", 4);
        } else {
            writeRaw("false", 5);
        }
        return;
    case Variant::Type::Byte: writeInteger(static_cast<int>(word.u8)); return;
    case Variant::Type::Short: writeInteger(static_cast<int>(word.i16)); return;
    case Variant::Type::Int32: writeInteger(word.i32); return;
    case Variant::Type::Int64: writeInteger(word.i64); return;
    case Variant::Type::Float: writeDouble(word.f); return;
    case Variant::Type::Double: writeDouble(word.d); return;
    case Variant::Type::String: writeString(static_cast<const Variant::ExtValueString*>(word.ext)->m_value); return;
    case Variant::Type::Map: {
        const Zel::Detail::VariantMap& map = static_cast<const Variant::ExtValueMap*>(word.ext)->m_value;
        if (map.empty()) {
            writeRaw("{}", 2);
            return;
        }
        writeRaw("{", 1);
        m_stack.push_back(Frame{nullptr, map.begin(), 0, 0});
        return;
    }
    case Variant::Type::Vector: {
        const std::vector<Variant>& elements = static_cast<const Variant::ExtValueVector*>(word.ext)->m_value;
        if (elements.empty()) {
            writeRaw("[]", 2);
            return;
        }
        writeRaw("[", 1);
        m_stack.push_back(Frame{elements.data(), {}, 0, elements.size()});
        return;
    }
    default: throw GenericException("Unsupported Variant type:" + Variant::typeToString(value.type()));
    }
}

void Writer::write(const Variant& root) {
    writeValue(root);
    // Containers are walked from an explicit stack, so depth is limited by memory only.
    while (!m_stack.empty()) {
        Frame& frame = m_stack.back();
        if (!frame.elements) {
            if (frame.cursor.atEnd()) {
                writeRaw("}", 1);
                m_stack.pop_back();
                continue;
            }
            const Zel::Detail::VariantMap::Entry& entry = frame.cursor.entry();
            if (frame.index++ != 0) writeRaw(",", 1);
            frame.cursor.next();
            writeString(entry.first);
            writeRaw(":", 1);
            writeValue(entry.second); // may push, invalidating `frame`
        } else {
            if (frame.index == frame.count) {
                writeRaw("]", 1);
                m_stack.pop_back();
                continue;
            }
            if (frame.index != 0) writeRaw(",", 1);
            writeValue(frame.elements[frame.index++]);
        }
    }
}

} // namespace Zel::Json::Detail
