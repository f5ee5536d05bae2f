#include <Zel/Tasks/Detail/EngineMutex.h>
#include <Zel/Tasks/Manager.h>
#include <Zel/Tasks/RunContextImpl.h>
#include <Zel/Tasks/Task.h>
#include <Zel/Tasks/TaskRun.h>
#include <mutex>

namespace Zel::Tasks {

RunContextImpl::~RunContextImpl() = default;

int RunContextImpl::id() const {
    std::lock_guard lock(m_manager.mutex());
    return m_run.task()->id();
}

bool RunContextImpl::canceled() const {
    std::lock_guard lock(m_manager.mutex());
    return m_run.state() == TaskRun::Canceling;
}

} // namespace Zel::Tasks
