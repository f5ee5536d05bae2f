#include <Zel/IO/StringStream.h>

#include <Zel/ArgumentException.h>
#include <Zel/IO/StreamUtils.h>

#include <algorithm>
#include <cstring>

namespace Zel::IO {

StringStream::~StringStream() = default;

std::size_t StringStream::read(void* buffer, std::size_t size) {
    const std::size_t count = peek(buffer, size);
    m_position += count;
    return count;
}

std::size_t StringStream::peek(void* buffer, std::size_t size) {
    const std::size_t count = std::min(size, m_text.size() - m_position);
    if (count != 0) std::memcpy(buffer, m_text.data() + m_position, count);
    return count;
}

std::size_t StringStream::write(const void* data, std::size_t size) {
    m_text.append(static_cast<const char*>(data), size);
    return size;
}

std::uint32_t StringStream::capabilities() const {
    return Readable | Writable | Seekable | Peekable | LengthKnown;
}

std::int64_t StringStream::getLength() const {
    return static_cast<std::int64_t>(m_text.size());
}

std::int64_t StringStream::getPosition() const {
    return static_cast<std::int64_t>(m_position);
}

void StringStream::setPosition(std::int64_t position) {
    if (position < 0 || static_cast<std::uint64_t>(position) > m_text.size()) {
        throw ArgumentException("Stream: position out of range | position=" + std::to_string(position) +
                                " | length=" + std::to_string(m_text.size()));
    }
    m_position = static_cast<std::size_t>(position);
}

void StringStream::setEof() {
    m_position = m_text.size();
}

std::int64_t StringStream::copyTo(IStream& target) {
    const std::size_t count = m_text.size() - m_position;
    // Copying into itself would chase its own tail; the bytes are taken before writing.
    if (&target == this) {
        const std::string rest = m_text.substr(m_position);
        m_position = m_text.size();
        writeAll(target, rest.data(), rest.size());
        return static_cast<std::int64_t>(count);
    }
    writeAll(target, m_text.data() + m_position, count);
    m_position += count;
    return static_cast<std::int64_t>(count);
}

std::string StringStream::take() {
    std::string text = std::move(m_text);
    clear();
    return text;
}

void StringStream::clear() noexcept {
    m_text.clear();
    m_position = 0;
}

} // namespace Zel::IO
