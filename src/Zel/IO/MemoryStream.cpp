#include <Zel/IO/MemoryStream.h>

#include <Zel/ArgumentException.h>
#include <Zel/IO/StreamUtils.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace Zel::IO {

MemoryStream::~MemoryStream() = default;

std::size_t MemoryStream::read(void* buffer, std::size_t size) {
    const std::size_t count = peek(buffer, size);
    m_position += count;
    return count;
}

std::size_t MemoryStream::peek(void* buffer, std::size_t size) {
    const std::size_t count = std::min(size, m_size - m_position);
    if (count != 0) std::memcpy(buffer, m_data + m_position, count);
    return count;
}

std::size_t MemoryStream::write(const void* data, std::size_t size) {
    if (m_writable == nullptr) throwNotSupported("write");
    const std::size_t count = std::min(size, m_size - m_position);
    if (count != 0) std::memmove(m_writable + m_position, data, count);
    m_position += count;
    return count;
}

std::uint32_t MemoryStream::capabilities() const {
    return Readable | Seekable | Peekable | LengthKnown | (m_writable != nullptr ? Writable : 0u);
}

std::int64_t MemoryStream::getLength() const {
    return static_cast<std::int64_t>(m_size);
}

std::int64_t MemoryStream::getPosition() const {
    return static_cast<std::int64_t>(m_position);
}

void MemoryStream::setPosition(std::int64_t position) {
    if (position < 0 || static_cast<std::uint64_t>(position) > m_size) {
        throw ArgumentException("Stream: position out of range | position=" + std::to_string(position) +
                                " | length=" + std::to_string(m_size));
    }
    m_position = static_cast<std::size_t>(position);
}

void MemoryStream::setEof() {
    m_position = m_size;
}

std::int64_t MemoryStream::copyTo(IStream& target) {
    const std::size_t start = m_position;
    const std::size_t count = m_size - start;
    m_position = m_size;
    try {
        writeAll(target, m_data + start, count);
    } catch (...) {
        m_position = start;
        throw;
    }
    return static_cast<std::int64_t>(count);
}

} // namespace Zel::IO
