#include <Zel/Detail/VariantMap.h>

#include <algorithm>
#include <iterator>

namespace Zel::Detail {

namespace {

bool keyLess(const VariantMap::Entry& a, const VariantMap::Entry& b) noexcept {
    return a.first < b.first;
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
            if (!(i->first < (i - 1)->first)) continue;
            Entry moving = std::move(*i);
            Entry* j = i;
            do {
                *j = std::move(*(j - 1));
                --j;
            } while (j != first && moving.first < (j - 1)->first);
            *j = std::move(moving);
        }
    } else if (!std::is_sorted(first, last, keyLess)) {
        std::stable_sort(first, last, keyLess);
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

std::size_t VariantMap::chunkFor(std::string_view key) const noexcept {
    if (m_chunks.size() <= 1) return 0;
    const auto after = std::upper_bound(m_chunks.begin(), m_chunks.end(), key,
                                        [](std::string_view k, const Chunk& c) { return k < c.front().first; });
    return after == m_chunks.begin() ? 0 : static_cast<std::size_t>(after - m_chunks.begin()) - 1;
}

const Variant* VariantMap::find(std::string_view key) const noexcept {
    if (m_chunks.empty()) return nullptr;
    const Chunk& chunk = m_chunks[chunkFor(key)];
    const auto it = std::lower_bound(chunk.begin(), chunk.end(), key,
                                     [](const Entry& e, std::string_view k) { return std::string_view(e.first) < k; });
    return it != chunk.end() && it->first == key ? &it->second : nullptr;
}

void VariantMap::insertOrAssign(std::string&& key, Variant&& value) {
    if (m_chunks.empty()) {
        m_chunks.emplace_back().emplace_back(std::move(key), std::move(value));
        m_size = 1;
        return;
    }
    const std::size_t index = chunkFor(key);
    Chunk& chunk = m_chunks[index];
    const auto it = std::lower_bound(chunk.begin(), chunk.end(), key,
                                     [](const Entry& e, const std::string& k) { return e.first < k; });
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
        upper.insert(upper.end(), std::make_move_iterator(chunk.begin() + half), std::make_move_iterator(chunk.end()));
        chunk.erase(chunk.begin() + half, chunk.end());
        m_chunks.insert(m_chunks.begin() + static_cast<std::ptrdiff_t>(index) + 1, std::move(upper));
    }
}

void VariantMap::erase(std::string_view key) {
    if (m_chunks.empty()) return;
    const std::size_t index = chunkFor(key);
    Chunk& chunk = m_chunks[index];
    const auto it = std::lower_bound(chunk.begin(), chunk.end(), key,
                                     [](const Entry& e, std::string_view k) { return std::string_view(e.first) < k; });
    if (it == chunk.end() || it->first != key) return;
    chunk.erase(it);
    --m_size;
    if (chunk.empty()) m_chunks.erase(m_chunks.begin() + static_cast<std::ptrdiff_t>(index));
}

} // namespace Zel::Detail
