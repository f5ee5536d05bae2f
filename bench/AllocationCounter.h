#pragma once

#include <cstddef>

namespace Zel::Bench {

// Number of global operator new calls so far in this process, the shared library's included (the
// executable's replacement operators interpose on every module). Only programs that link
// AllocationCounter.cpp count; it replaces the global allocation functions.
std::size_t allocationCount() noexcept;

} // namespace Zel::Bench
