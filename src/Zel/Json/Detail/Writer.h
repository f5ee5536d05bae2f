#pragma once

#include <Zel/Detail/VariantMap.h>
#include <Zel/Variant.h>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Json::Detail {

// Compact JSON writer over a growable buffer written through a raw cursor: the per-byte cost of a
// std::string append would dominate writing.
class Writer {
public:
    void write(const Variant& value);
    void writeString(std::string_view text);
    std::string take();

    // For a writer kept to serialise many values: the text so far, and a restart that keeps the
    // buffer's and the stack's capacity.
    std::string_view written() const noexcept {
        return {m_buffer.data(), m_cursor ? static_cast<std::size_t>(m_cursor - m_buffer.data()) : 0};
    }
    void reset() noexcept {
        m_cursor = m_buffer.data();
        m_limit = m_buffer.data() + m_buffer.size();
        m_stack.clear();
    }

private:
    struct Frame {
        const Variant* elements;                // vectors; null for a map
        Zel::Detail::VariantMap::Cursor cursor; // maps
        std::size_t index;                      // elements or members written so far
        std::size_t count;                      // vectors
    };

    void reserve(std::size_t bytes) {
        if (static_cast<std::size_t>(m_limit - m_cursor) < bytes) grow(bytes);
    }
    void grow(std::size_t needed);
    void writeRaw(const char* text, std::size_t length) {
        reserve(length);
        std::memcpy(m_cursor, text, length);
        m_cursor += length;
    }
    void writeDouble(double value);
    template <class Integer>
    void writeInteger(Integer value);
    void writeValue(const Variant& value);

    std::string m_buffer;
    char* m_cursor = nullptr;
    char* m_limit = nullptr;
    std::vector<Frame> m_stack;
};

} // namespace Zel::Json::Detail
