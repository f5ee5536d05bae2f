#pragma once

#include <cstddef>

namespace Zel::Detail {

// Fills the buffer from the operating system's CSPRNG; throws GenericException when it fails.
void secureRandom(void* buffer, std::size_t size);

} // namespace Zel::Detail
