#include <Zel/Platform/IServiceRegistry.h>

namespace Zel::Platform {

IServiceRegistry::~IServiceRegistry() = default;

} // namespace Zel::Platform
