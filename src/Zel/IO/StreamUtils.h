#pragma once

#include <Zel/Export.h>
#include <Zel/IO/IStream.h>

#include <cstddef>
#include <string>

namespace Zel::IO {

// Writes all of `data`, calling write as often as needed. A write that takes nothing throws
// IOException "Stream: write took no bytes | written=... | size=...".
ZEL_API void writeAll(IStream& stream, const void* data, std::size_t size);

// The rest of the stream as one string.
ZEL_API std::string readAll(IStream& stream);

} // namespace Zel::IO
