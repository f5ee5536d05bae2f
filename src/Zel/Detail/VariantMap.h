#pragma once

#include <Zel/Variant.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zel::Detail {

// The ordered map behind a map Variant: unique std::string keys in byte-wise order.
//
// Entries live in sorted chunks of at most `maxChunk` entries. Small maps (nearly every JSON
// object) are one contiguous sorted vector, which parses, iterates and looks up faster than a
// node-based tree; large maps split into chunks so that inserting a random key moves at most one
// chunk's entries instead of half the map.
class VariantMap {
public:
    using Entry = std::pair<std::string, Variant>;
    using Chunk = std::vector<Entry>;
    static constexpr std::size_t maxChunk = 256;

    // The chunks in key order, the first one held inline: nearly every map has a single chunk,
    // and a JSON object then costs one allocation for its entries and none for the list.
    class ChunkList {
    public:
        ChunkList() = default;
        ChunkList(const ChunkList&) = default;
        ChunkList& operator=(const ChunkList&) = default;
        // A moved-from list must read as empty, not as a count over chunks that left.
        ChunkList(ChunkList&& other) noexcept
            : m_first(std::move(other.m_first)), m_rest(std::move(other.m_rest)),
              m_count(std::exchange(other.m_count, 0)) {
            other.m_first.clear();
        }
        ChunkList& operator=(ChunkList&& other) noexcept {
            m_first = std::move(other.m_first);
            m_rest = std::move(other.m_rest);
            m_count = std::exchange(other.m_count, 0);
            other.m_first.clear();
            return *this;
        }

        std::size_t size() const noexcept { return m_count; }
        bool empty() const noexcept { return m_count == 0; }
        Chunk& operator[](std::size_t index) noexcept { return index == 0 ? m_first : m_rest[index - 1]; }
        const Chunk& operator[](std::size_t index) const noexcept {
            return index == 0 ? m_first : m_rest[index - 1];
        }
        void reserve(std::size_t count) {
            if (count > 1) m_rest.reserve(count - 1);
        }
        Chunk& emplace_back() {
            ++m_count;
            return m_count == 1 ? m_first : m_rest.emplace_back();
        }
        void insert(std::size_t index, Chunk&& chunk);
        void erase(std::size_t index);

    private:
        Chunk m_first;
        std::vector<Chunk> m_rest;
        std::size_t m_count = 0;
    };

    // Position of one entry: (chunk, index in chunk). The end is (chunks().size(), 0).
    struct Cursor {
        const VariantMap* map;
        std::size_t chunk = 0;
        std::size_t index = 0;

        bool atEnd() const noexcept { return chunk >= map->m_chunks.size(); }
        const Entry& entry() const noexcept { return map->m_chunks[chunk][index]; }
        void next() noexcept {
            if (++index == map->m_chunks[chunk].size()) {
                ++chunk;
                index = 0;
            }
        }
    };

    VariantMap() = default;
    VariantMap(const VariantMap&) = default;
    VariantMap& operator=(const VariantMap&) = default;
    VariantMap(VariantMap&& other) noexcept
        : m_chunks(std::move(other.m_chunks)), m_size(std::exchange(other.m_size, 0)) {}
    VariantMap& operator=(VariantMap&& other) noexcept {
        m_chunks = std::move(other.m_chunks);
        m_size = std::exchange(other.m_size, 0);
        return *this;
    }

    // Takes entries that are sorted by key with no key repeated.
    static VariantMap fromSorted(Entry* first, Entry* last);
    // Sorts by key (stable) and keeps the last of repeated keys, then takes the entries.
    static VariantMap fromUnsorted(Entry* first, Entry* last);

    std::size_t size() const noexcept { return m_size; }
    bool empty() const noexcept { return m_size == 0; }
    const ChunkList& chunks() const noexcept { return m_chunks; }
    Cursor begin() const noexcept { return Cursor{this, 0, 0}; }

    const Variant* find(std::string_view key) const noexcept;
    Variant* find(std::string_view key) noexcept {
        return const_cast<Variant*>(static_cast<const VariantMap*>(this)->find(key));
    }
    void insertOrAssign(std::string&& key, Variant&& value);
    void erase(std::string_view key);

private:
    // A map of `count` entries taken in key order, each moved from the next `nextEntry()`.
    template <class NextEntry>
    static VariantMap build(std::size_t count, NextEntry nextEntry);
    std::size_t chunkFor(std::string_view key) const noexcept;

    ChunkList m_chunks; // never holds an empty chunk
    std::size_t m_size = 0;
};

} // namespace Zel::Detail
