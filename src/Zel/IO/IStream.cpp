#include <Zel/IO/IStream.h>

namespace Zel::IO {

IStream::~IStream() = default;

} // namespace Zel::IO
