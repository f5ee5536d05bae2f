#pragma once

#include <Zel/Platform/Operation.h>
#include <Zel/Platform/ServiceProxy.h>
#include <cstdint>
#include <string>

namespace Zel::Platform {

// The host's event bus, service "Events" (see docs/host-services.md). Subscribers name an
// Operation for the host to call, usually one from the plug-in's CallbacksService::add; the host
// calls it with that operation's params plus "event" and "data".
class ZEL_API EventsProxy : public ServiceProxy {
public:
    static constexpr const char* serviceReference = "Events";

    explicit EventsProxy(const IServiceCaller& caller);
    ~EventsProxy() override;

    // Returns the subscription's id.
    std::int64_t subscribe(const std::string& event, const Operation& callback) const;
    // False when there was no such subscription.
    bool unsubscribe(std::int64_t subscriptionId) const;
    // Delivers `data` to every subscriber of `event` before it returns; the number of them.
    std::int64_t raise(const std::string& event, const Variant& data = {}) const;
};

} // namespace Zel::Platform
