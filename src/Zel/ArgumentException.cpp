#include <Zel/ArgumentException.h>

namespace Zel {

ArgumentException::~ArgumentException() = default;

} // namespace Zel
