#include <Zel/IO/IOException.h>

namespace Zel::IO {

IOException::~IOException() = default;

} // namespace Zel::IO
