#pragma once

#include <Zel/Export.h>

#include <cstdint>
#include <string>

namespace Zel::Log {

// Installs a subsystem number and a context text for the current thread for as long as the object
// lives; sinks print them with every record the thread writes, so lines of one task run can be
// told apart from those of another. The task system installs one around each task run.
//
// Scopes nest: the destructor puts back what was installed before. An object must be destroyed on
// the thread that created it (keep it on the stack); it can be neither copied nor moved.
class ZEL_API ThreadContext {
public:
    ThreadContext(int subsystem, std::string context);
    virtual ~ThreadContext();

    ThreadContext(const ThreadContext&) = delete;
    ThreadContext& operator=(const ThreadContext&) = delete;

    // What the innermost live ThreadContext of the calling thread installed: 0 and "" when none.
    static int currentSubsystem() noexcept;
    static const std::string& currentContext() noexcept;

    // The operating system's number for the calling thread (what `top -H` or a debugger shows).
    static std::uint64_t currentThreadId() noexcept;

private:
    int m_previousSubsystem;
    std::string m_previousContext;
};

} // namespace Zel::Log
