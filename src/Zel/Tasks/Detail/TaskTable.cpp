#include <Zel/Tasks/Detail/TaskTable.h>
#include <utility>

namespace Zel::Tasks::Detail {

void TaskTable::add(int id, int tag, std::shared_ptr<Task> task) {
    m_entries.insert_or_assign(id, Slot{tag, std::move(task)});
}

const std::shared_ptr<Task>* TaskTable::find(int id) const noexcept {
    const auto found = m_entries.find(id);
    return found == m_entries.end() ? nullptr : &found->second.task;
}

bool TaskTable::erase(int id, const Task& task) noexcept {
    const auto found = m_entries.find(id);
    if (found == m_entries.end() || found->second.task.get() != &task) return false;
    m_entries.erase(found);
    if (m_entries.empty()) {
        // Drops the bucket array too, then the nodes' memory: a burst leaves nothing behind.
        m_entries = decltype(m_entries)(&m_pool);
        m_pool.release();
    }
    return true;
}

std::vector<std::shared_ptr<Task>> TaskTable::takeAll() {
    std::vector<std::shared_ptr<Task>> tasks;
    tasks.reserve(m_entries.size());
    for (auto& [id, slot] : m_entries)
        tasks.push_back(std::move(slot.task));
    m_entries = decltype(m_entries)(&m_pool);
    m_pool.release();
    return tasks;
}

} // namespace Zel::Tasks::Detail
