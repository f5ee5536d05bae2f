#pragma once

#include <Zel/Export.h>
#include <string>

namespace Zel::Tasks {

// What adding a task did: the id of the task that will run, and whether that is a task already in
// the queue under the same reference (the new one was then not added).
class ZEL_API TaskAddResult {
public:
    TaskAddResult() noexcept = default;
    TaskAddResult(int id, bool existingTask) noexcept : m_id(id), m_existingTask(existingTask) {}

    int id() const noexcept { return m_id; }
    bool existingTask() const noexcept { return m_existingTask; }

    // {"id":..,"existingTask":..}
    std::string toJson() const;

    friend bool operator==(const TaskAddResult&, const TaskAddResult&) = default;

private:
    int m_id = 0;
    bool m_existingTask = false;
};

} // namespace Zel::Tasks
