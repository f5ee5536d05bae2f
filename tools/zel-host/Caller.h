#pragma once

#include <string>

namespace ZelHost {

// Who is calling the host on this thread: the plug-in's name, or empty for the host's own session.
// Each plug-in reaches the host through a callback of its own, which sets the scope for the
// duration of the call, so host services can tell plug-ins apart (a transaction belongs to the
// plug-in that began it). A call routed on to another plug-in sets that plug-in's scope in turn.
class CallerScope {
public:
    explicit CallerScope(const std::string& caller) : m_previous(s_current) { s_current = &caller; }
    ~CallerScope() { s_current = m_previous; }
    CallerScope(const CallerScope&) = delete;
    CallerScope& operator=(const CallerScope&) = delete;

    static const std::string& current() {
        static const std::string host;
        return s_current != nullptr ? *s_current : host;
    }

private:
    const std::string* m_previous;
    static inline thread_local const std::string* s_current = nullptr;
};

} // namespace ZelHost
