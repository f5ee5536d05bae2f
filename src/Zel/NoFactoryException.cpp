#include <Zel/NoFactoryException.h>

namespace Zel {

NoFactoryException::~NoFactoryException() = default;

} // namespace Zel
