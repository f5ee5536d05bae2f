#include <Zel/IO/BufferedStream.h>

#include <Zel/ArgumentException.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Zel::IO {

BufferedStream::BufferedStream(std::shared_ptr<IStream> source, std::size_t bufferSize)
    : m_source(std::move(source)), m_capacity(std::max<std::size_t>(bufferSize, 16)) {
    if (!m_source) throw ArgumentException("Buffered stream: no source stream");
    m_buffer = std::make_unique_for_overwrite<char[]>(m_capacity);
    m_cursor = m_end = m_buffer.get();
}

BufferedStream::~BufferedStream() = default;

void BufferedStream::makeRoom(std::size_t wanted) {
    char* const begin = m_buffer.get();
    const std::size_t held = static_cast<std::size_t>(m_end - m_cursor);
    if (held == 0) {
        m_consumedBefore += m_cursor - begin;
        m_cursor = m_end = begin;
    }
    const std::size_t needed = std::max(wanted, held + 1);
    if (needed > m_capacity) {
        std::size_t capacity = m_capacity;
        while (capacity < needed)
            capacity *= 2;
        auto bigger = std::make_unique_for_overwrite<char[]>(capacity);
        std::memcpy(bigger.get(), m_cursor, held);
        m_consumedBefore += m_cursor - begin;
        m_buffer = std::move(bigger);
        m_capacity = capacity;
        m_cursor = m_buffer.get();
        m_end = m_cursor + held;
        return;
    }
    // Move the unconsumed bytes to the front once the free tail is too short to be worth a read.
    const std::size_t freeTail = static_cast<std::size_t>(begin + m_capacity - m_end);
    if (m_cursor != begin && (freeTail < needed - held || freeTail < m_capacity / 2)) {
        std::memmove(begin, m_cursor, held);
        m_consumedBefore += m_cursor - begin;
        m_cursor = begin;
        m_end = begin + held;
    }
}

bool BufferedStream::fill() {
    if (m_eof) return false;
    makeRoom(0);
    const std::size_t count =
        m_source->read(m_end, static_cast<std::size_t>(m_buffer.get() + m_capacity - m_end));
    m_end += count;
    return count != 0;
}

int BufferedStream::readByteSlow() {
    if (!fill()) return -1;
    return static_cast<unsigned char>(*m_cursor++);
}

int BufferedStream::peekByteSlow() {
    if (!fill()) return -1;
    return static_cast<unsigned char>(*m_cursor);
}

std::size_t BufferedStream::read(void* buffer, std::size_t size) {
    if (m_eof || size == 0) return 0;
    if (m_cursor == m_end) {
        if (size >= m_capacity) {
            // Nothing to gain from copying through the buffer.
            m_consumedBefore += m_cursor - m_buffer.get();
            m_cursor = m_end = m_buffer.get();
            const std::size_t count = m_source->read(buffer, size);
            m_consumedBefore += static_cast<std::int64_t>(count);
            return count;
        }
        if (!fill()) return 0;
    }
    const std::size_t count = std::min(size, static_cast<std::size_t>(m_end - m_cursor));
    std::memcpy(buffer, m_cursor, count);
    m_cursor += count;
    return count;
}

std::size_t BufferedStream::peek(void* buffer, std::size_t size) {
    if (m_eof || size == 0) return 0;
    if (static_cast<std::size_t>(m_end - m_cursor) < size) {
        makeRoom(size);
        m_end += m_source->read(m_end, static_cast<std::size_t>(m_buffer.get() + m_capacity - m_end));
    }
    const std::size_t count = std::min(size, static_cast<std::size_t>(m_end - m_cursor));
    if (count != 0) std::memcpy(buffer, m_cursor, count);
    return count;
}

std::size_t BufferedStream::write(const void* data, std::size_t size) {
    return m_source->write(data, size);
}

void BufferedStream::flush() {
    m_source->flush();
}

std::uint32_t BufferedStream::capabilities() const {
    return (m_source->capabilities() & (Readable | Writable)) | Peekable;
}

void BufferedStream::setEof() {
    m_consumedBefore += m_cursor - m_buffer.get();
    m_cursor = m_end = m_buffer.get();
    m_eof = true;
}

} // namespace Zel::IO
