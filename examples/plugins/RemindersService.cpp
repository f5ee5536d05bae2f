#include "RemindersService.h"

#include <Zel/Json/Object.h>
#include <Zel/Platform/DataStoreTransaction.h>
#include <Zel/Platform/IServiceRegistry.h>
#include <Zel/Platform/Plugin.h>
#include <Zel/Platform/ServiceException.h>
#include <Zel/Tasks/Task.h>
#include <cstdio>

namespace {

using Zel::Platform::ServiceException;

std::string keyOf(std::int64_t id) {
    char key[40];
    std::snprintf(key, sizeof key, "reminders/%012lld", static_cast<long long>(id));
    return key;
}

} // namespace

RemindersService::RemindersService() : Service("Reminders") {
    addInterface("IReminders");
    on("add", [this](const Zel::Variant& params) { return add(params); });
    on("pending", [this]() { return pending(); });
}

void RemindersService::connect() {
    std::call_once(m_connected, [this] {
        auto& plugin = static_cast<Zel::Platform::Plugin&>(this->plugin());
        m_store = plugin.create<Zel::Platform::DataStoreProxy>();
        m_tasks = std::make_unique<Zel::Platform::TasksProxy>(plugin);
        const auto keys = m_store->listKeys("reminders/");
        if (!keys.empty()) m_nextId = std::stoll(keys.back().substr(10)) + 1;
        // Due while the host was away: the host's tasks did not outlive it, the reminders did.
        for (const std::string& key : keys)
            schedule(std::stoll(key.substr(10)), std::chrono::milliseconds(0));
    });
}

Zel::Variant RemindersService::add(const Zel::Variant& params) {
    connect();
    const Zel::Variant* text = params.isMap() ? params.find("text") : nullptr;
    if (text == nullptr || !text->isString() || text->_string().empty())
        throw ServiceException("badRequest", "A reminder needs a text | param=text");
    const Zel::Variant* delay = params.find("delayMs");
    if (delay == nullptr || !delay->isInteger() || static_cast<std::int64_t>(*delay) < 0)
        throw ServiceException("badRequest", "A reminder needs a delay in milliseconds | param=delayMs");

    auto& plugin = static_cast<Zel::Platform::Plugin&>(this->plugin());
    const auto notes = plugin.create<Zel::Platform::IServiceRegistry>()->lookup("INotes");
    if (notes.empty())
        throw ServiceException("notFound", "No notes service to remind into | interface=INotes");

    const std::int64_t id = m_nextId++;
    Zel::Variant reminder = Zel::Variant::makeMap();
    reminder.setAt("id", id);
    reminder.setAt("text", *text);
    reminder.setAt("notesService", notes.front());
    m_store->setKey(keyOf(id), reminder);

    schedule(id, std::chrono::milliseconds(static_cast<std::int64_t>(*delay)));

    Zel::Variant reply = Zel::Variant::makeMap();
    reply.setAt("id", id);
    reply.setAt("notesService", notes.front());
    return reply;
}

void RemindersService::schedule(std::int64_t id, std::chrono::milliseconds delay) {
    auto task = std::make_shared<Zel::Tasks::Task>("reminder " + std::to_string(id),
                                                   [this, id](Zel::Tasks::RunContext&) {
                                                       fire(id);
                                                       return true;
                                                   });
    // One task per reminder, however often it is scheduled.
    task->setOptions(Zel::Tasks::TaskOptions()
                         .setRetryCount(3)
                         .setRetryMinBackoff(std::chrono::milliseconds(200))
                         .setReference(keyOf(id)));
    m_tasks->addTask(task, "default", delay);
}

void RemindersService::fire(std::int64_t id) {
    // The reminder goes only if its note was added: a failed add rolls the removal back, and the
    // host's retry finds the reminder again.
    Zel::Platform::DataStoreTransaction transaction(*m_store);
    const Zel::Variant reminder = transaction.getKey(keyOf(id));
    if (reminder.isNull()) return; // fired already
    transaction.removeKey(keyOf(id));
    plugin().serviceCaller().call(
        reminder["notesService"], "add",
        Zel::Json::Object().add("text", "Reminder: " + std::string(reminder["text"])).json());
    transaction.commit();
}

Zel::Variant RemindersService::pending() const {
    const_cast<RemindersService*>(this)->connect();
    Zel::Variant list = Zel::Variant::makeVector();
    for (const std::string& key : m_store->listKeys("reminders/")) {
        Zel::Variant reminder = m_store->getKey(key);
        if (!reminder.isNull()) list.push_back(std::move(reminder));
    }
    return list;
}
