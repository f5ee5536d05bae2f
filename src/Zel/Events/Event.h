#pragma once

#include <Zel/Export.h>

#include <string>

namespace Zel::Events {

// Something that happened, delivered by an event manager to the handlers attached under its name.
// A plain Event is just the name; typed events derive from it and carry their data, and handlers
// reach that data through the typed attach of IManager (or a dynamic_cast).
class ZEL_API Event {
public:
    explicit Event(std::string name);
    virtual ~Event();

    Event(const Event&) = default;
    Event& operator=(const Event&) = default;
    Event(Event&&) noexcept = default;
    Event& operator=(Event&&) noexcept = default;

    const std::string& name() const noexcept { return m_name; }

private:
    std::string m_name;
};

} // namespace Zel::Events
