#pragma once

#include <Zel/Events/Event.h>

#include <cstdint>
#include <functional>
#include <string>

namespace Zel::Events {

// Raises named events to the handlers attached under the event's name, synchronously, on the thread
// that raises. A handler that throws is logged and does not keep the other handlers from running.
class ZEL_API IManager {
public:
    using Handler = std::function<void(const Event&)>;
    // Names one attached handler for detach(); never 0.
    using HandlerId = std::uint64_t;

    virtual ~IManager();

    virtual HandlerId attach(const std::string& eventName, Handler handler) = 0;
    // False when the id is unknown (never attached, or already detached).
    virtual bool detach(HandlerId id) = 0;

    virtual void raise(const Event& event) = 0;
    // Raises a plain Event of that name.
    virtual void raise(const std::string& eventName) = 0;

    // Whether raising an event of that name would reach anyone: lets a caller skip building an
    // expensive event.
    virtual bool hasHandlers(const std::string& eventName) const = 0;

    // A handler that sees only events of type E raised under the name; events of other types raised
    // under the same name pass it by.
    template <class E>
    HandlerId attach(const std::string& eventName, std::function<void(const E&)> handler) {
        return attach(eventName, Handler([handler = std::move(handler)](const Event& event) {
                          if (const E* typed = dynamic_cast<const E*>(&event)) handler(*typed);
                      }));
    }
};

} // namespace Zel::Events
