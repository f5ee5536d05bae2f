#pragma once

#include <cstddef>
#include <memory>
#include <memory_resource>
#include <unordered_map>
#include <vector>

namespace Zel::Tasks {
class Task;
}

namespace Zel::Tasks::Detail {

// The tasks a manager knows, by id. Ids are taken without the manager's lock and runs are admitted
// queue by queue, so tasks enter in no particular order of id. Not thread-safe: the manager's lock
// guards it.
class TaskTable {
public:
    struct Entry {
        int id;
        int tag;
        const std::shared_ptr<Task>& task;
    };

    void add(int id, int tag, std::shared_ptr<Task> task);
    const std::shared_ptr<Task>* find(int id) const noexcept;
    bool erase(int id, const Task& task) noexcept;
    std::size_t size() const noexcept { return m_entries.size(); }
    // In no particular order.
    template <class Visit>
    void forEach(Visit&& visit) const {
        for (const auto& [id, entry] : m_entries)
            visit(Entry{id, entry.tag, entry.task});
    }
    // Empties the table; the tasks are the caller's to let go of.
    std::vector<std::shared_ptr<Task>> takeAll();

private:
    struct Slot {
        int tag;
        std::shared_ptr<Task> task;
    };
    // The nodes come from a pool of the table's own: a task added costs no allocation of its own
    // here, and the memory goes back when the table empties.
    std::pmr::unsynchronized_pool_resource m_pool;
    std::pmr::unordered_map<int, Slot> m_entries{&m_pool};
};

} // namespace Zel::Tasks::Detail
