#include <Zel/Orm/ObjectsChangedEvent.h>
#include <utility>

namespace Zel::Orm {

ObjectsChangedEvent::ObjectsChangedEvent(std::string name, Variant data)
    : Events::Event(std::move(name)), m_data(std::move(data)) {}

ObjectsChangedEvent::~ObjectsChangedEvent() = default;

} // namespace Zel::Orm
