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

    // Takes entries that are sorted by key with no key repeated.
    static VariantMap fromSorted(Entry* first, Entry* last);
    // Sorts by key (stable) and keeps the last of repeated keys, then takes the entries.
    static VariantMap fromUnsorted(Entry* first, Entry* last);

    std::size_t size() const noexcept { return m_size; }
    bool empty() const noexcept { return m_size == 0; }
    const std::vector<Chunk>& chunks() const noexcept { return m_chunks; }
    Cursor begin() const noexcept { return Cursor{this, 0, 0}; }

    const Variant* find(std::string_view key) const noexcept;
    Variant* find(std::string_view key) noexcept {
        return const_cast<Variant*>(static_cast<const VariantMap*>(this)->find(key));
    }
    void insertOrAssign(std::string&& key, Variant&& value);
    void erase(std::string_view key);

private:
    std::size_t chunkFor(std::string_view key) const noexcept;

    std::vector<Chunk> m_chunks; // never holds an empty chunk
    std::size_t m_size = 0;
};

} // namespace Zel::Detail
