#include <Zel/Detail/VariantMap.h>
#include <algorithm>
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

bool entryLess(const VariantMap::Entry& a, const VariantMap::Entry& b) noexcept {
    return keyLess(a.first, b.first);
}

} // namespace

VariantMap VariantMap::fromSorted(Entry* first, Entry* last) {
    VariantMap map;
    const auto count = static_cast<std::size_t>(last - first);
    if (count == 0) return map;
    // Big maps start half-full so that the first inserts do not split at once.
    const std::size_t perChunk = count <= maxChunk ? count : maxChunk / 2;
    map.m_chunks.reserve((count + perChunk - 1) / perChunk);
    while (first != last) {
        const std::size_t take = std::min(perChunk, static_cast<std::size_t>(last - first));
        Chunk& chunk = map.m_chunks.emplace_back();
        chunk.reserve(take);
        chunk.insert(chunk.end(), std::make_move_iterator(first), std::make_move_iterator(first + take));
        first += take;
    }
    map.m_size = count;
    return map;
}

VariantMap VariantMap::fromUnsorted(Entry* first, Entry* last) {
    const auto count = last - first;
    if (count <= 24) {
        // Insertion sort: stable, allocation-free and fastest for the small objects JSON is made of.
        for (Entry* i = first + 1; i < last; ++i) {
            if (!keyLess(i->first, (i - 1)->first)) continue;
            Entry moving = std::move(*i);
            Entry* j = i;
            do {
                *j = std::move(*(j - 1));
                --j;
            } while (j != first && keyLess(moving.first, (j - 1)->first));
            *j = std::move(moving);
        }
    } else if (!std::is_sorted(first, last, entryLess)) {
        std::stable_sort(first, last, entryLess);
    }
    // Repeated keys: the last one wins. Stable sorting kept them in input order.
    Entry* out = first;
    for (Entry* i = first; i < last; ++i) {
        if (i + 1 < last && i->first == (i + 1)->first) continue;
        if (out != i) *out = std::move(*i);
        ++out;
    }
    return fromSorted(first, out);
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
