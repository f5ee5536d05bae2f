#include "NotesService.h"

#include <Zel/Platform/Plugin.h>
#include <Zel/Platform/ServiceException.h>
#include <cstdio>

namespace {

using Zel::Platform::ServiceException;

// Zero-padded, so that the store's byte-wise key order is the order of the ids.
std::string keyOf(std::int64_t id) {
    char key[32];
    std::snprintf(key, sizeof key, "notes/%012lld", static_cast<long long>(id));
    return key;
}

std::int64_t idParam(const Zel::Variant& params) {
    const Zel::Variant* id = params.isMap() ? params.find("id") : nullptr;
    if (id == nullptr || !id->isInteger() || static_cast<std::int64_t>(*id) < 1)
        throw ServiceException("badRequest", "A note is named by its id, a positive integer | param=id");
    return static_cast<std::int64_t>(*id);
}

} // namespace

NotesService::NotesService() : Service("Notes") {
    addInterface("INotes");
    on("add", [this](const Zel::Variant& params) { return add(params); });
    on("get", [this](const Zel::Variant& params) { return get(params); });
    on("list", [this]() { return list(); });
    on("remove", [this](const Zel::Variant& params) { return remove(params); });
    on("stats", [this]() { return stats(); });
}

void NotesService::connect() {
    std::call_once(m_connected, [this] {
        auto& plugin = static_cast<Zel::Platform::Plugin&>(this->plugin());
        m_store = plugin.create<Zel::Platform::DataStoreProxy>();
        // The store outlives this process: go on after the last note a previous run left.
        if (const auto keys = m_store->listKeys("notes/"); !keys.empty())
            m_nextId = std::stoll(keys.back().substr(6)) + 1;
        m_events = plugin.create<Zel::Platform::EventsProxy>();
        m_log = plugin.create<Zel::Log::ILog>();
        const auto callback = plugin.callbacks()->add([this](const Zel::Variant&) { ++m_addedEvents; });
        m_events->subscribe("notes.added", callback);
    });
}

Zel::Variant NotesService::add(const Zel::Variant& params) {
    connect();
    const Zel::Variant* text = params.isMap() ? params.find("text") : nullptr;
    if (text == nullptr || !text->isString() || text->_string().empty())
        throw ServiceException("badRequest", "A note needs a text | param=text");
    const Zel::Variant* tags = params.find("tags");
    if (tags != nullptr && !tags->isVector())
        throw ServiceException("badRequest", "Tags are a list | param=tags");

    const std::int64_t id = m_nextId++;
    Zel::Variant note = Zel::Variant::makeMap();
    note.setAt("id", id);
    note.setAt("text", *text);
    note.setAt("tags", tags != nullptr ? *tags : Zel::Variant::makeVector());
    m_store->setKey(keyOf(id), note);
    m_log->info("Note added | id=" + std::to_string(id));
    m_events->raise("notes.added", note);

    Zel::Variant reply = Zel::Variant::makeMap();
    reply.setAt("id", id);
    return reply;
}

Zel::Variant NotesService::get(const Zel::Variant& params) const {
    const_cast<NotesService*>(this)->connect();
    const std::int64_t id = idParam(params);
    Zel::Variant note = m_store->getKey(keyOf(id));
    if (note.isNull()) throw ServiceException("notFound", "No such note | id=" + std::to_string(id));
    return note;
}

Zel::Variant NotesService::list() const {
    const_cast<NotesService*>(this)->connect();
    Zel::Variant notes = Zel::Variant::makeVector();
    for (const std::string& key : m_store->listKeys("notes/")) {
        Zel::Variant note = m_store->getKey(key);
        // Removed by another call since the keys were listed.
        if (!note.isNull()) notes.push_back(std::move(note));
    }
    return notes;
}

Zel::Variant NotesService::remove(const Zel::Variant& params) {
    connect();
    const std::int64_t id = idParam(params);
    if (!m_store->removeKey(keyOf(id)))
        throw ServiceException("notFound", "No such note | id=" + std::to_string(id));
    m_log->info("Note removed | id=" + std::to_string(id));
    Zel::Variant reply = Zel::Variant::makeMap();
    reply.setAt("removed", true);
    return reply;
}

Zel::Variant NotesService::stats() const {
    const_cast<NotesService*>(this)->connect();
    Zel::Variant reply = Zel::Variant::makeMap();
    reply.setAt("count", static_cast<std::int64_t>(m_store->listKeys("notes/").size()));
    reply.setAt("added", m_addedEvents.load());
    return reply;
}
