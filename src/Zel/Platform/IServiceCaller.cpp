#include <Zel/Platform/IServiceCaller.h>

namespace Zel::Platform {

IServiceCaller::~IServiceCaller() = default;

} // namespace Zel::Platform
