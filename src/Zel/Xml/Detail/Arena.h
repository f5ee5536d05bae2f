#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <new>
#include <vector>

namespace Zel::Xml::Detail {

// Bump allocation for trivially destructible records that all die with their document: one
// allocation per block instead of one per node, and nodes laid out in document order.
class Arena {
public:
    Arena() noexcept = default;
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;

    // Default-initialised, that is not zeroed: the caller sets every field.
    template <class T>
    T* create() {
        return new (allocate(sizeof(T), alignof(T))) T;
    }
    char* allocateChars(std::size_t size) { return static_cast<char*>(allocate(size, 1)); }

    void* allocate(std::size_t size, std::size_t alignment) {
        std::size_t offset = (m_used + alignment - 1) & ~(alignment - 1);
        if (offset + size > m_capacity) {
            grow(size + alignment);
            offset = (m_used + alignment - 1) & ~(alignment - 1);
        }
        m_used = offset + size;
        return m_block + offset;
    }

private:
    // Blocks stay below the size at which malloc turns to mmap: those come back from the heap
    // already mapped, where fresh large mappings would fault in every page on each parse.
    static constexpr std::size_t blockSize = 64 * 1024 - 64;

    void grow(std::size_t atLeast) {
        const std::size_t size = std::max(atLeast, blockSize);
        m_blocks.emplace_back(new char[size]);
        m_block = m_blocks.back().get();
        m_capacity = size;
        m_used = 0;
    }

    std::vector<std::unique_ptr<char[]>> m_blocks;
    char* m_block = nullptr;
    std::size_t m_used = 0;
    std::size_t m_capacity = 0;
};

} // namespace Zel::Xml::Detail
