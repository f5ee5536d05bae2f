#include <Zel/Platform/IPlugin.h>

namespace Zel::Platform {

IPlugin::~IPlugin() = default;

} // namespace Zel::Platform
