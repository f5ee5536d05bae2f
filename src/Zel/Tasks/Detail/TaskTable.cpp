#include <Zel/Tasks/Detail/TaskTable.h>
#include <algorithm>
#include <utility>

namespace Zel::Tasks::Detail {

void TaskTable::add(int id, int tag, std::shared_ptr<Task> task) {
    m_entries.push_back(Entry{id, tag, std::move(task)});
}

std::deque<TaskTable::Entry>::iterator TaskTable::locate(int id) noexcept {
    // Most lookups are for recent adds or for the oldest ones (the sweep): both ends are cheap.
    if (m_entries.empty() || id < m_entries.front().id || id > m_entries.back().id) return m_entries.end();
    const auto found = std::lower_bound(m_entries.begin(), m_entries.end(), id,
                                        [](const Entry& entry, int wanted) { return entry.id < wanted; });
    return found != m_entries.end() && found->id == id && found->task ? found : m_entries.end();
}

const std::shared_ptr<Task>* TaskTable::find(int id) const noexcept {
    const auto found = const_cast<TaskTable*>(this)->locate(id);
    return found == m_entries.end() ? nullptr : &found->task;
}

bool TaskTable::erase(int id, const Task& task) noexcept {
    const auto found = locate(id);
    if (found == m_entries.end() || found->task.get() != &task) return false;
    found->task.reset();
    ++m_holes;
    // Holes at the front go at once (runs mostly finish in the order they were added); the rest
    // once they outnumber the live entries, which keeps the work per erase constant on average.
    while (!m_entries.empty() && !m_entries.front().task) {
        m_entries.pop_front();
        --m_holes;
    }
    if (m_holes > 64 && m_holes * 2 > m_entries.size()) {
        std::erase_if(m_entries, [](const Entry& entry) { return !entry.task; });
        m_holes = 0;
    }
    return true;
}

std::deque<TaskTable::Entry> TaskTable::takeAll() noexcept {
    m_holes = 0;
    return std::exchange(m_entries, {});
}

} // namespace Zel::Tasks::Detail
