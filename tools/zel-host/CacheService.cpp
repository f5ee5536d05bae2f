#include "CacheService.h"

#include "Params.h"

namespace ZelHost {

CacheService::CacheService(std::size_t capacity, std::chrono::milliseconds defaultTimeToLive)
    : Service("Cache"), m_capacity(capacity), m_defaultTimeToLive(defaultTimeToLive) {
    addInterface("ICache");
    on("get", [this](const Zel::Variant& params) { return get(stringParam(params, "key")); });
    on("set", [this](const Zel::Variant& params) {
        std::string key = stringParam(params, "key");
        std::chrono::milliseconds timeToLive = m_defaultTimeToLive;
        if (optionalParam(params, "ttlMs") != nullptr) {
            const std::int64_t ttl = integerParam(params, "ttlMs");
            if (ttl < 0) badParameter("ttlMs");
            timeToLive = std::chrono::milliseconds(ttl);
        }
        set(std::move(key), anyParam(params, "value"), timeToLive);
    });
    on("remove", [this](const Zel::Variant& params) { return remove(stringParam(params, "key")); });
    on("clear", [this]() {
        const std::lock_guard lock(m_mutex);
        m_entries.clear();
        m_index.clear();
    });
    on("metrics", [this]() { return metrics(); });
}

Zel::Variant CacheService::get(const std::string& key) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_index.find(key);
    if (found == m_index.end()) {
        ++m_misses;
        return {};
    }
    if (Clock::now() >= found->second->expires) {
        ++m_expirations;
        ++m_misses;
        m_entries.erase(found->second);
        m_index.erase(found);
        return {};
    }
    ++m_hits;
    m_entries.splice(m_entries.begin(), m_entries, found->second);
    return found->second->value;
}

void CacheService::set(std::string key, Zel::Variant value, std::chrono::milliseconds timeToLive) {
    const Clock::time_point expires =
        timeToLive.count() == 0 ? Clock::time_point::max() : Clock::now() + timeToLive;
    const std::lock_guard lock(m_mutex);
    if (const auto found = m_index.find(key); found != m_index.end()) {
        found->second->value = std::move(value);
        found->second->expires = expires;
        m_entries.splice(m_entries.begin(), m_entries, found->second);
        return;
    }
    if (m_index.size() >= m_capacity) {
        m_index.erase(m_entries.back().key);
        m_entries.pop_back();
        ++m_evictions;
    }
    m_entries.push_front(Entry{key, std::move(value), expires});
    m_index.emplace(std::move(key), m_entries.begin());
}

bool CacheService::remove(const std::string& key) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_index.find(key);
    if (found == m_index.end()) return false;
    m_entries.erase(found->second);
    m_index.erase(found);
    return true;
}

Zel::Variant CacheService::metrics() {
    const std::lock_guard lock(m_mutex);
    Zel::Variant metrics = Zel::Variant::makeMap();
    metrics.setAt("size", static_cast<std::int64_t>(m_index.size()));
    metrics.setAt("capacity", static_cast<std::int64_t>(m_capacity));
    metrics.setAt("hits", m_hits);
    metrics.setAt("misses", m_misses);
    metrics.setAt("evictions", m_evictions);
    metrics.setAt("expirations", m_expirations);
    return metrics;
}

} // namespace ZelHost
