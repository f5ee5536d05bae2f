#pragma once

#include <Zel/Events/IManager.h>

#include <memory>

namespace Zel::Log {
class ILog;
}

namespace Zel::Events {

// The in-process event manager.
//
// Handlers run on the raising thread in the order they were attached. A handler's std::exception is
// logged as "Event handler threw an std::exception | event=%s | message=%s", anything else as "Event
// handler threw an unknown exception | event=%s"; the remaining handlers still run.
//
// Thread safety: every operation may be called from any thread and from inside a handler. A handler
// detached while an event is being delivered may still receive that one event.
class ZEL_API Manager : public IManager {
public:
    explicit Manager(std::shared_ptr<Log::ILog> log = nullptr);
    ~Manager() override;

    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    using IManager::attach;
    HandlerId attach(const std::string& eventName, Handler handler) override;
    bool detach(HandlerId id) override;
    void raise(const Event& event) override;
    void raise(const std::string& eventName) override;
    bool hasHandlers(const std::string& eventName) const override;

    // Handlers attached now, over all names.
    std::size_t handlerCount() const noexcept;

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace Zel::Events
