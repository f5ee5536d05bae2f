#include <Zel/Json/Json.h>
#include <Zel/Platform/EventsProxy.h>

namespace Zel::Platform {

EventsProxy::EventsProxy(const IServiceCaller& caller) : ServiceProxy(caller, serviceReference) {}
EventsProxy::~EventsProxy() = default;

std::int64_t EventsProxy::subscribe(const std::string& event, const Operation& callback) const {
    Json::Object target;
    target.add("service", callback.service).add("operation", callback.operation);
    target.addJson("params", callback.params.empty() ? "{}" : callback.params);
    return static_cast<std::int64_t>(
        call("subscribe", Json::Object().add("event", event).addJson("callback", target)));
}

bool EventsProxy::unsubscribe(std::int64_t subscriptionId) const {
    return static_cast<bool>(call("unsubscribe", Json::Object().add("subscriptionId", subscriptionId)));
}

std::int64_t EventsProxy::raise(const std::string& event, const Variant& data) const {
    return static_cast<std::int64_t>(call("raise", Json::Object().add("event", event).add("data", data)));
}

} // namespace Zel::Platform
