#pragma once

#include <cstddef>
#include <deque>
#include <memory>

namespace Zel::Tasks {
class Task;
}

namespace Zel::Tasks::Detail {

// The tasks a manager knows, by the id of each add, with the tag they were added under.
//
// Ids are handed out in increasing order, so entries are appended to a deque that stays sorted: an
// add costs no allocation of its own and a lookup is a binary search. A forgotten entry leaves a
// hole; holes at the front are dropped at once and the others once they are the majority, so memory
// follows the live entries even when one long-waiting task holds the oldest id.
//
// Not thread-safe: the manager's lock guards it.
class TaskTable {
public:
    struct Entry {
        int id;
        int tag;
        std::shared_ptr<Task> task; // null once forgotten
    };

    // `id` must be greater than every id added before.
    void add(int id, int tag, std::shared_ptr<Task> task);
    // The task added under `id`; null when there is none.
    const std::shared_ptr<Task>* find(int id) const noexcept;
    // Forgets the entry of `id` when it holds `task`; returns whether it did.
    bool erase(int id, const Task& task) noexcept;
    std::size_t size() const noexcept { return m_entries.size() - m_holes; }
    // Calls `visit(const Entry&)` for every live entry, in id order.
    template <class Visit>
    void forEach(Visit&& visit) const {
        for (const Entry& entry : m_entries)
            if (entry.task) visit(entry);
    }
    // Hands every task over (for destruction outside the lock) and empties the table.
    std::deque<Entry> takeAll() noexcept;

private:
    std::deque<Entry>::iterator locate(int id) noexcept;

    std::deque<Entry> m_entries; // by id
    std::size_t m_holes = 0;
};

} // namespace Zel::Tasks::Detail
