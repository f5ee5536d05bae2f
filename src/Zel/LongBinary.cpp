#include <Zel/LongBinary.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace Zel {

LongBinary::LongBinary(const void* data, std::int32_t size) {
    alloc(size);
    if (size > 0) std::memcpy(m_data, data, static_cast<std::size_t>(size));
}

LongBinary::LongBinary(const LongBinary& other) : LongBinary(other.m_data, other.m_size) {}

LongBinary::LongBinary(LongBinary&& other) noexcept
    : m_size(std::exchange(other.m_size, 0)), m_data(std::exchange(other.m_data, nullptr)) {}

LongBinary& LongBinary::operator=(const LongBinary& other) {
    if (this != &other) {
        LongBinary copy(other);
        *this = std::move(copy);
    }
    return *this;
}

LongBinary& LongBinary::operator=(LongBinary&& other) noexcept {
    if (this != &other) {
        free();
        m_size = std::exchange(other.m_size, 0);
        m_data = std::exchange(other.m_data, nullptr);
    }
    return *this;
}

LongBinary::~LongBinary() {
    free();
}

void LongBinary::alloc(std::int32_t size) {
    if (size < 0) throw std::bad_alloc();
    auto* data = static_cast<std::uint8_t*>(std::calloc(size > 0 ? static_cast<std::size_t>(size) : 1, 1));
    if (!data) throw std::bad_alloc();
    free();
    m_data = data;
    m_size = size;
}

void LongBinary::realloc(std::int32_t size) {
    if (size < 0) throw std::bad_alloc();
    auto* data =
        static_cast<std::uint8_t*>(std::realloc(m_data, size > 0 ? static_cast<std::size_t>(size) : 1));
    if (!data) throw std::bad_alloc();
    if (size > m_size) std::memset(data + m_size, 0, static_cast<std::size_t>(size - m_size));
    m_data = data;
    m_size = size;
}

void LongBinary::free() noexcept {
    std::free(m_data);
    m_data = nullptr;
    m_size = 0;
}

void LongBinary::attach(void* data, std::int32_t size) noexcept {
    free();
    m_data = static_cast<std::uint8_t*>(data);
    m_size = data ? size : 0;
}

void* LongBinary::detach() noexcept {
    m_size = 0;
    return std::exchange(m_data, nullptr);
}

bool operator==(const LongBinary& a, const LongBinary& b) noexcept {
    return a.m_size == b.m_size && (a.m_size == 0 || std::memcmp(a.m_data, b.m_data, static_cast<std::size_t>(a.m_size)) == 0);
}

} // namespace Zel
