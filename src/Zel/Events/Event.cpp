#include <Zel/Events/Event.h>

#include <utility>

namespace Zel::Events {

Event::Event(std::string name) : m_name(std::move(name)) {}

Event::~Event() = default;

} // namespace Zel::Events
