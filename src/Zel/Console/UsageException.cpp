#include <Zel/Console/UsageException.h>

namespace Zel::Console {

UsageException::~UsageException() = default;

} // namespace Zel::Console
