#pragma once

#include <Zel/Log/ILog.h>
#include <Zel/Platform/DataStoreProxy.h>
#include <Zel/Platform/EventsProxy.h>
#include <Zel/Platform/Service.h>
#include <atomic>
#include <memory>
#include <mutex>

// "Notes": short texts kept in the host's data store, one key per note.
//
//   add {"text": "...", "tags": ["..."]}   -> {"id": 1}
//   get {"id": 1}                          -> {"id": 1, "text": "...", "tags": [...]}
//   list {}                                -> [note, ...] in the order they were added
//   remove {"id": 1}                       -> {"removed": true}
//   stats {}                               -> {"count": n, "added": m}
//
// Bad requests come back as error replies: errRef "badRequest" for a missing or mistyped param,
// "notFound" for an unknown id. Each add raises the host event "notes.added", which the service
// itself subscribes to, to count them in stats.
class NotesService : public Zel::Platform::Service {
public:
    NotesService();

private:
    Zel::Variant add(const Zel::Variant& params);
    Zel::Variant get(const Zel::Variant& params) const;
    Zel::Variant list() const;
    Zel::Variant remove(const Zel::Variant& params);
    Zel::Variant stats() const;

    // The host's services are reached through the plug-in, known once the service was added to one.
    void connect();

    std::once_flag m_connected;
    std::shared_ptr<Zel::Platform::DataStoreProxy> m_store;
    std::shared_ptr<Zel::Platform::EventsProxy> m_events;
    std::shared_ptr<Zel::Log::ILog> m_log;
    std::atomic<std::int64_t> m_nextId{1};
    std::atomic<std::int64_t> m_addedEvents{0};
};
