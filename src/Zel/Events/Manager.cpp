#include <Zel/Events/Manager.h>

#include <Zel/Log/ILog.h>
#include <Zel/Log/Macros.h>

#if defined(__GNUC__) && !defined(__clang__)
// GCC 12 takes the boost::optional in Signals2's slot group keys for maybe uninitialized; it is not.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include <boost/signals2/signal.hpp>

#include <atomic>
#include <exception>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <utility>

namespace Zel::Events {

namespace {

using Signal = boost::signals2::signal<void(const Event&)>;

} // namespace

struct Manager::Impl {
    std::shared_ptr<Log::ILog> log;

    mutable std::shared_mutex mutex;
    std::unordered_map<std::string, std::shared_ptr<Signal>> signals;
    std::unordered_map<HandlerId, std::pair<std::string, boost::signals2::connection>> connections;
    HandlerId nextId = 1;
    // Read without the lock so that raising with nobody listening costs one atomic load.
    std::atomic<std::size_t> handlers{0};
};

Manager::Manager(std::shared_ptr<Log::ILog> log) : m_impl(std::make_unique<Impl>()) {
    m_impl->log = std::move(log);
}

Manager::~Manager() = default;

IManager::HandlerId Manager::attach(const std::string& eventName, Handler handler) {
    // Each handler is wrapped on its own, so one that throws cannot cut the delivery short.
    auto guarded = [log = m_impl->log, handler = std::move(handler)](const Event& event) {
        try {
            handler(event);
        } catch (const std::exception& exception) {
            ZEL_LOG_ERROR(log, "Event handler threw an std::exception | event=" + event.name() +
                                   " | message=" + exception.what());
        } catch (...) {
            ZEL_LOG_ERROR(log, "Event handler threw an unknown exception | event=" + event.name());
        }
    };
    std::unique_lock lock(m_impl->mutex);
    std::shared_ptr<Signal>& signal = m_impl->signals[eventName];
    if (!signal) signal = std::make_shared<Signal>();
    const HandlerId id = m_impl->nextId++;
    m_impl->connections.emplace(id, std::make_pair(eventName, signal->connect(std::move(guarded))));
    m_impl->handlers.fetch_add(1, std::memory_order_relaxed);
    return id;
}

bool Manager::detach(HandlerId id) {
    std::unique_lock lock(m_impl->mutex);
    auto found = m_impl->connections.find(id);
    if (found == m_impl->connections.end()) return false;
    auto [eventName, connection] = std::move(found->second);
    m_impl->connections.erase(found);
    connection.disconnect();
    m_impl->handlers.fetch_sub(1, std::memory_order_relaxed);
    if (auto signal = m_impl->signals.find(eventName);
        signal != m_impl->signals.end() && signal->second->empty()) {
        // A delivery in progress holds its own reference to the signal.
        m_impl->signals.erase(signal);
    }
    return true;
}

void Manager::raise(const Event& event) {
    if (m_impl->handlers.load(std::memory_order_relaxed) == 0) return;
    std::shared_ptr<Signal> signal;
    {
        std::shared_lock lock(m_impl->mutex);
        auto found = m_impl->signals.find(event.name());
        if (found == m_impl->signals.end()) return;
        signal = found->second;
    }
    // Delivered without the lock, so handlers may attach, detach and raise.
    (*signal)(event);
}

void Manager::raise(const std::string& eventName) {
    if (!hasHandlers(eventName)) return;
    raise(Event(eventName));
}

bool Manager::hasHandlers(const std::string& eventName) const {
    if (m_impl->handlers.load(std::memory_order_relaxed) == 0) return false;
    std::shared_lock lock(m_impl->mutex);
    return m_impl->signals.contains(eventName);
}

std::size_t Manager::handlerCount() const noexcept {
    return m_impl->handlers.load(std::memory_order_relaxed);
}

} // namespace Zel::Events
