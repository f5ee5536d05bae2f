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
    explicit Arena(std::size_t firstBlock = 4096) noexcept : m_nextBlock(firstBlock) {}
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;

    template <class T>
    T* create() {
        return new (allocate(sizeof(T), alignof(T))) T{};
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
    void grow(std::size_t atLeast) {
        const std::size_t size = std::max(atLeast, m_nextBlock);
        m_blocks.emplace_back(new char[size]);
        m_block = m_blocks.back().get();
        m_capacity = size;
        m_used = 0;
        m_nextBlock = std::min<std::size_t>(m_nextBlock * 2, 8 * 1024 * 1024);
    }

    std::vector<std::unique_ptr<char[]>> m_blocks;
    char* m_block = nullptr;
    std::size_t m_used = 0;
    std::size_t m_capacity = 0;
    std::size_t m_nextBlock;
};

} // namespace Zel::Xml::Detail
