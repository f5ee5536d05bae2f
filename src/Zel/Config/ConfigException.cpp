#include <Zel/Config/ConfigException.h>

namespace Zel::Config {

ConfigException::ConfigException(std::string message) : GenericException(std::move(message)) {}
ConfigException::~ConfigException() = default;

} // namespace Zel::Config
