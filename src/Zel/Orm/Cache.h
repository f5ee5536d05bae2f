#pragma once

#include <Zel/Export.h>
#include <Zel/Variant.h>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace Zel::Orm {

// Rows recently read from the database, shared by every session of one factory, so that an object
// another session (or this one, after a commit) has loaded can be rebuilt without a round trip.
//
// It keeps snapshots (the DB class name and the column values), never live objects: each session
// builds its own object from a snapshot, so no two sessions ever share a mutable object. Once full,
// the least recently used snapshot goes. Writers drop an id's snapshot when they write the row and
// again when they commit, because another session may have read the old row back in between.
//
// A reader that missed takes a ticket() before it reads the row and hands it to put(): when any
// snapshot was dropped in between, the put is refused, since the row it read may be the one a
// writer was just replacing (read before that writer's commit, put after it).
//
// Thread safety: every operation may be called from any thread; one mutex guards the whole cache.
// Snapshots are immutable and handed out by shared pointer, so a reader never sees one change.
class ZEL_API Cache {
public:
    struct Row {
        std::string dbClass;
        // In the order of the class's properties along its chain (ModelClass::allProperties).
        std::vector<Variant> values;
    };

    struct Metrics {
        std::uint64_t hits = 0;
        std::uint64_t misses = 0;
        std::uint64_t evictions = 0;
        std::size_t size = 0;
        std::size_t capacity = 0;
    };

    // 0 turns the cache off: nothing is kept and nothing is counted.
    explicit Cache(std::size_t capacity);
    ~Cache();

    Cache(const Cache&) = delete;
    Cache& operator=(const Cache&) = delete;

    bool enabled() const noexcept { return m_capacity > 0; }
    std::size_t capacity() const noexcept { return m_capacity; }

    // Null on a miss; a hit makes the entry the most recently used.
    std::shared_ptr<const Row> find(std::int32_t id);
    // Taken before reading a row from the database, for put().
    std::uint64_t ticket() const noexcept { return m_drops.load(std::memory_order_acquire); }
    // Replaces what the id had; does nothing when a snapshot was dropped since `ticket` was taken.
    void put(std::int32_t id, std::shared_ptr<const Row> row, std::uint64_t ticket);
    void erase(std::int32_t id);
    void clear();
    Metrics metrics() const;

private:
    using Entry = std::pair<std::int32_t, std::shared_ptr<const Row>>;

    const std::size_t m_capacity;
    mutable std::mutex m_mutex;
    std::list<Entry> m_entries; // most recently used first
    std::unordered_map<std::int32_t, std::list<Entry>::iterator> m_index;
    std::uint64_t m_hits = 0;
    std::uint64_t m_misses = 0;
    std::uint64_t m_evictions = 0;
    std::atomic<std::uint64_t> m_drops{0};
};

} // namespace Zel::Orm
