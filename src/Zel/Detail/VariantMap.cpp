#include <Zel/Detail/VariantMap.h>
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

namespace Zel::Detail {

namespace {

// Keys are mostly a few bytes long; comparing those inline beats a call to memcmp.
inline bool keyLess(std::string_view a, std::string_view b) noexcept {
    const std::size_t common = a.size() < b.size() ? a.size() : b.size();
    if (common <= 16) {
        for (std::size_t i = 0; i < common; ++i)
            if (a[i] != b[i]) return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[i]);
        return a.size() < b.size();
    }
    return a < b;
}

// A key's first sixteen bytes as two big-endian words, zero-padded: where these differ they order
// two keys as their bytes do (a key that ends early pads with zeros and is a prefix of the other),
// so sorting compares integers and reads the keys themselves only on a tie.
struct SortKey {
    std::uint64_t head;
    std::uint64_t tail;
    VariantMap::Entry* entry;
};

inline std::uint64_t bigEndianWord(const std::string& key, std::size_t offset) noexcept {
    unsigned char bytes[8] = {};
    if (offset < key.size())
        std::memcpy(bytes, key.data() + offset, std::min<std::size_t>(8, key.size() - offset));
    std::uint64_t word = 0;
    for (unsigned char byte : bytes)
        word = word << 8 | byte;
    return word;
}

inline SortKey sortKeyOf(VariantMap::Entry& entry) noexcept {
    return SortKey{bigEndianWord(entry.first, 0), bigEndianWord(entry.first, 8), &entry};
}

inline bool sortLess(const SortKey& a, const SortKey& b) noexcept {
    if (a.head != b.head) return a.head < b.head;
    if (a.tail != b.tail) return a.tail < b.tail;
    return keyLess(a.entry->first, b.entry->first);
}

} // namespace

template <class NextEntry>
VariantMap VariantMap::build(std::size_t count, NextEntry nextEntry) {
    VariantMap map;
    if (count == 0) return map;
    // Big maps start half-full so that the first inserts do not split at once.
    const std::size_t perChunk = count <= maxChunk ? count : maxChunk / 2;
    map.m_chunks.reserve((count + perChunk - 1) / perChunk);
    for (std::size_t left = count; left != 0;) {
        const std::size_t take = std::min(perChunk, left);
        Chunk& chunk = map.m_chunks.emplace_back();
        chunk.reserve(take);
        for (std::size_t i = 0; i < take; ++i)
            chunk.push_back(std::move(nextEntry()));
        left -= take;
    }
    map.m_size = count;
    return map;
}

VariantMap VariantMap::fromSorted(Entry* first, Entry* last) {
    return build(static_cast<std::size_t>(last - first), [&first]() -> Entry& { return *first++; });
}

VariantMap VariantMap::fromUnsorted(Entry* first, Entry* last) {
    // Most objects arrive with their keys in order: one pass proves it, and that no key repeats.
    const auto count = static_cast<std::size_t>(last - first);
    std::size_t ordered = 1;
    while (ordered < count && keyLess(first[ordered - 1].first, first[ordered].first))
        ++ordered;
    if (ordered >= count) return fromSorted(first, last);

    // Otherwise order sort keys, not entries, so that each entry moves once, straight into its
    // chunk, and small objects need no buffer from the heap.
    constexpr std::size_t inlineCount = 64;
    SortKey inlineOrder[inlineCount];
    std::vector<SortKey> heapOrder;
    SortKey* order = inlineOrder;
    if (count > inlineCount) {
        heapOrder.resize(count);
        order = heapOrder.data();
    }
    for (std::size_t i = 0; i < count; ++i)
        order[i] = sortKeyOf(first[i]);
    // Both sorts are stable: repeated keys stay in input order.
    if (count <= inlineCount) {
        for (std::size_t i = ordered; i < count; ++i) {
            const SortKey moving = order[i];
            std::size_t j = i;
            for (; j > 0 && sortLess(moving, order[j - 1]); --j)
                order[j] = order[j - 1];
            order[j] = moving;
        }
    } else {
        std::stable_sort(order, order + count, sortLess);
    }
    // Of repeated keys the last one wins.
    std::size_t unique = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (i + 1 < count && !sortLess(order[i], order[i + 1])) continue;
        order[unique++] = order[i];
    }
    return build(unique, [&order]() -> Entry& { return *(order++)->entry; });
}

void VariantMap::ChunkList::insert(std::size_t index, Chunk&& chunk) {
    if (index == 0) {
        if (m_count > 0) m_rest.insert(m_rest.begin(), std::move(m_first));
        m_first = std::move(chunk);
    } else {
        m_rest.insert(m_rest.begin() + static_cast<std::ptrdiff_t>(index - 1), std::move(chunk));
    }
    ++m_count;
}

void VariantMap::ChunkList::erase(std::size_t index) {
    if (index == 0) {
        if (m_rest.empty()) {
            m_first.clear();
        } else {
            m_first = std::move(m_rest.front());
            m_rest.erase(m_rest.begin());
        }
    } else {
        m_rest.erase(m_rest.begin() + static_cast<std::ptrdiff_t>(index - 1));
    }
    --m_count;
}

std::size_t VariantMap::chunkFor(std::string_view key) const noexcept {
    // The last chunk whose first key is not above `key`, or the first chunk.
    std::size_t low = 0;
    std::size_t high = m_chunks.size();
    while (high - low > 1) {
        const std::size_t middle = low + (high - low) / 2;
        if (keyLess(key, m_chunks[middle].front().first))
            high = middle;
        else
            low = middle;
    }
    return low;
}

const Variant* VariantMap::find(std::string_view key) const noexcept {
    if (m_chunks.empty()) return nullptr;
    const Chunk& chunk = m_chunks[chunkFor(key)];
    const auto it = std::lower_bound(chunk.begin(), chunk.end(), key,
                                     [](const Entry& e, std::string_view k) { return keyLess(e.first, k); });
    return it != chunk.end() && std::string_view(it->first) == key ? &it->second : nullptr;
}

void VariantMap::insertOrAssign(std::string&& key, Variant&& value) {
    if (m_chunks.empty()) {
        m_chunks.emplace_back().emplace_back(std::move(key), std::move(value));
        m_size = 1;
        return;
    }
    const std::size_t index = chunkFor(key);
    Chunk& chunk = m_chunks[index];
    const auto it =
        std::lower_bound(chunk.begin(), chunk.end(), key,
                         [](const Entry& e, const std::string& k) { return keyLess(e.first, k); });
    if (it != chunk.end() && it->first == key) {
        it->second = std::move(value);
        return;
    }
    chunk.emplace(it, std::move(key), std::move(value));
    ++m_size;
    if (chunk.size() > maxChunk) {
        const auto half = static_cast<std::ptrdiff_t>(chunk.size() / 2);
        Chunk upper;
        upper.reserve(maxChunk);
        upper.insert(upper.end(), std::make_move_iterator(chunk.begin() + half),
                     std::make_move_iterator(chunk.end()));
        chunk.erase(chunk.begin() + half, chunk.end());
        m_chunks.insert(index + 1, std::move(upper));
    }
}

void VariantMap::erase(std::string_view key) {
    if (m_chunks.empty()) return;
    const std::size_t index = chunkFor(key);
    Chunk& chunk = m_chunks[index];
    const auto it = std::lower_bound(chunk.begin(), chunk.end(), key,
                                     [](const Entry& e, std::string_view k) { return keyLess(e.first, k); });
    if (it == chunk.end() || it->first != key) return;
    chunk.erase(it);
    --m_size;
    if (chunk.empty()) m_chunks.erase(index);
}

} // namespace Zel::Detail
