#include <Zel/Log/ThreadContext.h>

#include <utility>

#ifdef _WIN32
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace Zel::Log {

namespace {

struct State {
    int subsystem = 0;
    std::string context;
    std::uint64_t threadId = 0; // asked for on first use; no thread has number 0
};

thread_local State state;

std::uint64_t queryThreadId() noexcept {
#ifdef _WIN32
    return static_cast<std::uint64_t>(::GetCurrentThreadId());
#else
    return static_cast<std::uint64_t>(::gettid());
#endif
}

} // namespace

ThreadContext::ThreadContext(int subsystem, std::string context)
    : m_previousSubsystem(std::exchange(state.subsystem, subsystem)),
      m_previousContext(std::exchange(state.context, std::move(context))) {}

ThreadContext::~ThreadContext() {
    state.subsystem = m_previousSubsystem;
    state.context = std::move(m_previousContext);
}

int ThreadContext::currentSubsystem() noexcept {
    return state.subsystem;
}

const std::string& ThreadContext::currentContext() noexcept {
    return state.context;
}

std::uint64_t ThreadContext::currentThreadId() noexcept {
    if (state.threadId == 0) state.threadId = queryThreadId();
    return state.threadId;
}

} // namespace Zel::Log
