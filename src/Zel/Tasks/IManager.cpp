#include <Zel/Tasks/IManager.h>

namespace Zel::Tasks {

IManager::~IManager() = default;

} // namespace Zel::Tasks
