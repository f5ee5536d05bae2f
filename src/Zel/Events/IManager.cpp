#include <Zel/Events/IManager.h>

namespace Zel::Events {

IManager::~IManager() = default;

} // namespace Zel::Events
