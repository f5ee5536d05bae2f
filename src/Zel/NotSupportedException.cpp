#include <Zel/NotSupportedException.h>

namespace Zel {

NotSupportedException::~NotSupportedException() = default;

} // namespace Zel
