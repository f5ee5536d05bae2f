#include <Zel/Orm/Cache.h>
#include <utility>

namespace Zel::Orm {

Cache::Cache(std::size_t capacity) : m_capacity(capacity) {}

Cache::~Cache() = default;

std::shared_ptr<const Cache::Row> Cache::find(std::int32_t id) {
    if (m_capacity == 0) return nullptr;
    std::lock_guard lock(m_mutex);
    const auto found = m_index.find(id);
    if (found == m_index.end()) {
        ++m_misses;
        return nullptr;
    }
    ++m_hits;
    m_entries.splice(m_entries.begin(), m_entries, found->second);
    return found->second->second;
}

void Cache::put(std::int32_t id, std::shared_ptr<const Row> row, std::uint64_t ticket) {
    if (m_capacity == 0) return;
    std::lock_guard lock(m_mutex);
    if (ticket != m_drops.load(std::memory_order_relaxed)) return;
    if (const auto found = m_index.find(id); found != m_index.end()) {
        found->second->second = std::move(row);
        m_entries.splice(m_entries.begin(), m_entries, found->second);
        return;
    }
    if (m_entries.size() >= m_capacity) {
        m_index.erase(m_entries.back().first);
        m_entries.pop_back();
        ++m_evictions;
    }
    m_entries.emplace_front(id, std::move(row));
    m_index.emplace(id, m_entries.begin());
}

void Cache::erase(std::int32_t id) {
    if (m_capacity == 0) return;
    std::lock_guard lock(m_mutex);
    m_drops.fetch_add(1, std::memory_order_release);
    if (const auto found = m_index.find(id); found != m_index.end()) {
        m_entries.erase(found->second);
        m_index.erase(found);
    }
}

void Cache::clear() {
    std::lock_guard lock(m_mutex);
    m_drops.fetch_add(1, std::memory_order_release);
    m_entries.clear();
    m_index.clear();
}

Cache::Metrics Cache::metrics() const {
    std::lock_guard lock(m_mutex);
    return Metrics{m_hits, m_misses, m_evictions, m_entries.size(), m_capacity};
}

} // namespace Zel::Orm
