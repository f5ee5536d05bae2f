#pragma once

#include <Zel/Export.h>

namespace Zel::Tasks {

// What a task's finished callback learns about the task's end.
class ZEL_API FinishContext {
public:
    FinishContext(bool succeeded, int taskId) noexcept : m_succeeded(succeeded), m_taskId(taskId) {}

    // What the last run callback returned; false when it threw, or when the task was canceled before
    // it started.
    bool succeeded() const noexcept { return m_succeeded; }
    int taskId() const noexcept { return m_taskId; }

private:
    bool m_succeeded;
    int m_taskId;
};

} // namespace Zel::Tasks
