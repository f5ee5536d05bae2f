#pragma once

#include <Zel/Platform/DataStoreProxy.h>
#include <Zel/Platform/Service.h>
#include <Zel/Platform/TasksProxy.h>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>

// "Reminders": notes that are added later. It finds a notes service through the host's service
// discovery (any service declaring "INotes"), keeps each pending reminder in the host's data store
// and asks the host's task queue to call it back when the reminder is due; the call-back adds the
// note through the host and drops the reminder, both or neither.
//
//   add {"text": "...", "delayMs": 500}   -> {"id": 1, "notesService": "Notes"}
//   pending {}                           -> [{"id", "text", "notesService"}, ...]
//
// A reminder that was pending when the host stopped stays in the store (the host's tasks live in
// memory) and is scheduled again, due at once, by the first call of the next run.
class RemindersService : public Zel::Platform::Service {
public:
    RemindersService();

private:
    Zel::Variant add(const Zel::Variant& params);
    Zel::Variant pending() const;
    void schedule(std::int64_t id, std::chrono::milliseconds delay);
    void fire(std::int64_t id);
    void connect();

    std::once_flag m_connected;
    std::shared_ptr<Zel::Platform::DataStoreProxy> m_store;
    std::unique_ptr<Zel::Platform::TasksProxy> m_tasks;
    std::atomic<std::int64_t> m_nextId{1};
};
