#include <Zel/Json/Detail/Writer.h>

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

void Writer::writeString(std::string_view text) {
    reserve(text.size() * 6 + 2);
    char* out = m_cursor;
    *out++ = '"';
    const char* in = text.data();
    const char* const end = in + text.size();
    while (in < end) {
        // Copy the run of bytes that need no escape in one go.
        const char* run = in;
        while (in < end && escapeTable[static_cast<unsigned char>(*in)] == 0) ++in;
        std::memcpy(out, run, static_cast<std::size_t>(in - run));
        out += in - run;
        if (in == end) break;
        const auto byte = static_cast<unsigned char>(*in++);
        const char escape = escapeTable[byte];
        *out++ = '\\';
        if (escape == 'u') {
            std::memcpy(out, "u00", 3);
            out[3] = hexDigits[byte >> 4];
            out[4] = hexDigits[byte & 0xF];
            out += 5;
        } else {
            *out++ = escape;
        }
    }
    *out++ = '"';
    m_cursor = out;
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

// Writes a scalar or opens a container; returns true when a container was opened (and pushed).
bool Writer::writeValue(const Variant& value) {
    switch (value.type()) {
    case Variant::Type::Null: writeRaw("null", 4); return false;
    case Variant::Type::Bool:
        if (static_cast<bool>(value)) {
            writeRaw("true", 4);
        } else {
            writeRaw("false", 5);
        }
        return false;
    case Variant::Type::Byte:
    case Variant::Type::Short:
    case Variant::Type::Int32: writeInteger(static_cast<int>(value)); return false;
    case Variant::Type::Int64: writeInteger(static_cast<std::int64_t>(value)); return false;
    case Variant::Type::Float: writeDouble(static_cast<float>(value)); return false;
    case Variant::Type::Double: writeDouble(static_cast<double>(value)); return false;
    case Variant::Type::String: writeString(value._string()); return false;
    case Variant::Type::Map: {
        const Zel::Detail::VariantMap& map = value._map();
        if (map.empty()) {
            writeRaw("{}", 2);
            return false;
        }
        writeRaw("{", 1);
        m_stack.push_back(Frame{&value, map.begin(), 0});
        return true;
    }
    case Variant::Type::Vector:
        if (value._vector().empty()) {
            writeRaw("[]", 2);
            return false;
        }
        writeRaw("[", 1);
        m_stack.push_back(Frame{&value, {}, 0});
        return true;
    default: throw GenericException("Unsupported Variant type:" + Variant::typeToString(value.type()));
    }
}

void Writer::write(const Variant& root) {
    writeValue(root);
    // Containers are walked from an explicit stack, so depth is limited by memory only.
    while (!m_stack.empty()) {
        Frame& frame = m_stack.back();
        if (frame.container->isMap()) {
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
            const std::vector<Variant>& elements = frame.container->_vector();
            if (frame.index == elements.size()) {
                writeRaw("]", 1);
                m_stack.pop_back();
                continue;
            }
            if (frame.index != 0) writeRaw(",", 1);
            writeValue(elements[frame.index++]);
        }
    }
}

} // namespace Zel::Json::Detail
