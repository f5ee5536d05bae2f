#include "EventsService.h"

#include "Params.h"

#include <Zel/Json/Json.h>
#include <iostream>
#include <vector>

namespace ZelHost {

EventsService::EventsService(Deliver deliver) : Service("Events"), m_deliver(std::move(deliver)) {
    addInterface("IEvents");
    on("subscribe", [this](const Zel::Variant& params) {
        Subscription subscription;
        subscription.event = stringParam(params, "event");
        const Zel::Variant* callback = optionalParam(params, "callback");
        if (callback == nullptr || !callback->isMap()) badParameter("callback");
        subscription.service = stringParam(*callback, "service");
        subscription.operation = stringParam(*callback, "operation");
        subscription.params = anyParam(*callback, "params");
        if (subscription.params.isNull()) subscription.params = Zel::Variant::makeMap();
        if (!subscription.params.isMap()) badParameter("callback.params");
        const std::lock_guard lock(m_mutex);
        const std::int64_t id = m_nextId++;
        m_subscriptions.emplace(id, std::move(subscription));
        return id;
    });
    on("unsubscribe", [this](const Zel::Variant& params) {
        const std::int64_t id = integerParam(params, "subscriptionId");
        const std::lock_guard lock(m_mutex);
        return m_subscriptions.erase(id) > 0;
    });
    on("raise", [this](const Zel::Variant& params) {
        return raise(stringParam(params, "event"), anyParam(params, "data"));
    });
}

std::int64_t EventsService::raise(const std::string& event, const Zel::Variant& data) {
    std::vector<Subscription> targets;
    {
        const std::lock_guard lock(m_mutex);
        for (const auto& [id, subscription] : m_subscriptions)
            if (subscription.event == event) targets.push_back(subscription);
    }
    // Delivered outside the lock: a subscriber may well subscribe or raise in turn.
    std::int64_t delivered = 0;
    for (Subscription& target : targets) {
        Zel::Variant params = target.params;
        params.setAt("event", event);
        params.setAt("data", data);
        const std::string reply = m_deliver(target.service, target.operation, params.toJson());
        try {
            const Zel::Variant parsed = Zel::Json::parse(reply);
            if (parsed.isMap() && parsed.contains("result") &&
                static_cast<std::int64_t>(parsed["result"]) == 0)
                ++delivered;
            else
                std::cerr << "zel-host: event " << event << " was refused by " << target.service << "."
                          << target.operation << ": " << reply << '\n';
        } catch (const std::exception& error) {
            std::cerr << "zel-host: event " << event << " got a malformed reply: " << error.what() << '\n';
        }
    }
    return delivered;
}

} // namespace ZelHost
