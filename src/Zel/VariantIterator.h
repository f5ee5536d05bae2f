#pragma once

#include <Zel/Export.h>

#include <cstdint>
#include <string>

namespace Zel {

class Variant;

// Walks a map in key order or a vector by index. Dereferencing yields the iterator itself, so a
// range loop reads `for (const auto& entry : variant) use(entry.key(), entry.value());`.
// Valid only while the iterated payload is not changed.
class ZEL_API VariantIterator {
public:
    VariantIterator(const Variant& variant, bool atEnd);

    VariantIterator& operator++();
    const VariantIterator& operator*() const noexcept { return *this; }
    const VariantIterator* operator->() const noexcept { return this; }

    // The entry's key; for a vector the shared empty string.
    const std::string& key() const;
    const Variant& value() const;

    friend bool operator==(const VariantIterator& a, const VariantIterator& b) noexcept {
        return a.m_variant == b.m_variant && a.m_chunk == b.m_chunk && a.m_index == b.m_index;
    }

private:
    static const std::string m_emptyKey;

    const Variant* m_variant;
    // Maps are stored in sorted chunks: the position is (chunk, index within it). Vectors use
    // m_index alone.
    std::uint32_t m_chunk = 0;
    std::uint64_t m_index = 0;
};

} // namespace Zel
