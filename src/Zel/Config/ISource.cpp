#include <Zel/Config/ISource.h>

namespace Zel::Config {

ISource::~ISource() = default;

} // namespace Zel::Config
