#pragma once

#include <Zel/Export.h>

#include <cstdint>

namespace Zel {

// An owned byte buffer with a 32-bit size, as a binary Variant holds it. The bytes come from
// std::malloc, so `attach` takes over and `detach` hands out buffers of that allocator.
// Copies are deep.
class ZEL_API LongBinary {
public:
    LongBinary() noexcept = default;
    LongBinary(const void* data, std::int32_t size);
    LongBinary(const LongBinary& other);
    LongBinary(LongBinary&& other) noexcept;
    LongBinary& operator=(const LongBinary& other);
    LongBinary& operator=(LongBinary&& other) noexcept;
    ~LongBinary();

    // A new zero-filled buffer of `size` bytes; the old one is freed. Throws std::bad_alloc.
    void alloc(std::int32_t size);
    // Resizes keeping the leading bytes; new bytes are zero. Throws std::bad_alloc.
    void realloc(std::int32_t size);
    void free() noexcept;
    // Takes ownership of a std::malloc'ed buffer.
    void attach(void* data, std::int32_t size) noexcept;
    // Gives up the buffer without freeing it; the caller frees it with std::free.
    void* detach() noexcept;

    std::uint8_t* data() noexcept { return m_data; }
    const std::uint8_t* data() const noexcept { return m_data; }
    std::int32_t size() const noexcept { return m_size; }
    bool empty() const noexcept { return m_size == 0; }

    friend ZEL_API bool operator==(const LongBinary& a, const LongBinary& b) noexcept;

private:
    std::int32_t m_size = 0;
    std::uint8_t* m_data = nullptr;
};

} // namespace Zel
