#pragma once

#include <Zel/Platform/Service.h>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace ZelHost {

// "Events": subscriptions name an operation of a plug-in; raising an event calls each subscriber's
// operation, with the subscription's params plus "event" and "data", before raise returns.
class EventsService : public Zel::Platform::Service {
public:
    // Calls an operation of the plug-in and returns its reply text.
    using Deliver = std::function<std::string(const std::string& service, const std::string& operation,
                                              const std::string& params)>;

    explicit EventsService(Deliver deliver);

private:
    struct Subscription {
        std::string event;
        std::string service;
        std::string operation;
        Zel::Variant params;
    };

    std::int64_t raise(const std::string& event, const Zel::Variant& data);

    Deliver m_deliver;
    std::mutex m_mutex;
    std::map<std::int64_t, Subscription> m_subscriptions;
    std::int64_t m_nextId = 1;
};

} // namespace ZelHost
