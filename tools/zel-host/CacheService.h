#pragma once

#include <Zel/Platform/Service.h>
#include <chrono>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <unordered_map>

namespace ZelHost {

// "Cache": JSON values in the host's memory, shared by the plug-ins, each with an optional time to
// live. At capacity the least recently used entry makes room. Counts hits, misses, evictions and
// expirations for "metrics".
class CacheService : public Zel::Platform::Service {
public:
    // `defaultTimeToLive` 0: entries set without "ttlMs" do not expire.
    CacheService(std::size_t capacity, std::chrono::milliseconds defaultTimeToLive);

private:
    using Clock = std::chrono::steady_clock;
    struct Entry {
        std::string key;
        Zel::Variant value;
        Clock::time_point expires; // max(): never
    };

    Zel::Variant get(const std::string& key);
    void set(std::string key, Zel::Variant value, std::chrono::milliseconds timeToLive);
    bool remove(const std::string& key);
    Zel::Variant metrics();

    const std::size_t m_capacity;
    const std::chrono::milliseconds m_defaultTimeToLive;
    std::mutex m_mutex;
    std::list<Entry> m_entries; // most recently used first
    std::unordered_map<std::string, std::list<Entry>::iterator> m_index;
    std::int64_t m_hits = 0;
    std::int64_t m_misses = 0;
    std::int64_t m_evictions = 0;
    std::int64_t m_expirations = 0;
};

} // namespace ZelHost
