#pragma once

#include <Zel/Export.h>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Zel::Detail {

// Base of a Variant's shared payloads (string, binary, map, vector; see VariantPayloads.h). It is
// in a header of its own because Variant's inline copy and release touch the reference count;
// nothing else about payloads is visible to users.
//
// Payload blocks come from a small per-thread cache (PayloadCache.cpp): documents allocate and
// free them by the thousand.
struct ZEL_API ExtValue {
    virtual ~ExtValue();
    // A new payload with count 1 holding a copy of the object.
    virtual ExtValue* clone() const = 0;
    static void* operator new(std::size_t size);
    static void operator delete(void* block, std::size_t size) noexcept;
    std::atomic<std::int32_t> m_refCount{1};
};

} // namespace Zel::Detail
