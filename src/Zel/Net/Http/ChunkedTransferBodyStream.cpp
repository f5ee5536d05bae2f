#include <Zel/ArgumentException.h>
#include <Zel/IO/BufferedStream.h>
#include <Zel/Net/Http/ChunkedTransferBodyStream.h>
#include <Zel/Parser/UnexpectedCharException.h>
#include <Zel/Parser/UnexpectedEofException.h>
#include <algorithm>
#include <cstring>
#include <limits>
#include <typeinfo>
#include <utility>

namespace Zel::Net::Http {

ChunkedTransferBodyStream::ChunkedTransferBodyStream(std::shared_ptr<IO::IStream> source)
    : m_source(std::move(source)) {
    if (!m_source) throw ArgumentException("Chunked body: no source stream");
    const IO::IStream& sourceStream = *m_source; // typeid of a plain reference: no expression to evaluate
    m_bufferedSource = typeid(sourceStream) == typeid(IO::BufferedStream)
                           ? static_cast<IO::BufferedStream*>(m_source.get())
                           : nullptr;
}

ChunkedTransferBodyStream::~ChunkedTransferBodyStream() = default;

int ChunkedTransferBodyStream::nextByte() {
    int byte;
    if (m_bufferedSource != nullptr) {
        byte = m_bufferedSource->readByte();
    } else {
        unsigned char c;
        byte = m_source->read(&c, 1) == 1 ? c : -1;
    }
    if (byte >= 0) ++m_consumed;
    return byte;
}

unsigned char ChunkedTransferBodyStream::requireByte() {
    const int byte = nextByte();
    if (byte < 0) throw Parser::UnexpectedEofException(m_consumed);
    return static_cast<unsigned char>(byte);
}

void ChunkedTransferBodyStream::unexpected(unsigned char byte) const {
    throw Parser::UnexpectedCharException(byte, m_consumed - 1);
}

void ChunkedTransferBodyStream::readLineEnd() {
    if (const unsigned char byte = requireByte(); byte != '\r') unexpected(byte);
    if (const unsigned char byte = requireByte(); byte != '\n') unexpected(byte);
}

void ChunkedTransferBodyStream::readChunkSize() {
    // No overflow check: the size wraps like the unsigned arithmetic it is; a size beyond the
    // signed range is taken as the largest one, a chunk that can never complete.
    std::uint64_t size = 0;
    for (;;) {
        const unsigned char byte = requireByte();
        unsigned digit;
        if (byte >= '0' && byte <= '9') {
            digit = byte - '0';
        } else if (byte >= 'a' && byte <= 'f') {
            digit = byte - 'a' + 10;
        } else if (byte >= 'A' && byte <= 'F') {
            digit = byte - 'A' + 10;
        } else if (byte == '\r') {
            break;
        } else {
            unexpected(byte);
        }
        size = size * 16 + digit;
    }
    if (const unsigned char byte = requireByte(); byte != '\n') unexpected(byte);
    if (size == 0) {
        m_eof = true;
        m_remaining = 0;
        readLineEnd(); // no trailer fields
        return;
    }
    m_remaining =
        static_cast<std::int64_t>(std::min<std::uint64_t>(size, std::numeric_limits<std::int64_t>::max()));
}

void ChunkedTransferBodyStream::readData(char* out, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const std::size_t count = m_source->read(out + done, size - done);
        if (count == 0) throw Parser::UnexpectedEofException(m_consumed);
        done += count;
        m_consumed += static_cast<std::int64_t>(count);
        m_remaining -= static_cast<std::int64_t>(count);
    }
}

std::size_t ChunkedTransferBodyStream::decode(char* out, std::size_t size) {
    std::size_t done = 0;
    while (done < size && !m_eof) {
        if (m_remaining > 0) {
            const std::size_t count = static_cast<std::size_t>(
                std::min<std::uint64_t>(static_cast<std::uint64_t>(m_remaining), size - done));
            readData(out + done, count);
            done += count;
            continue;
        }
        if (m_remaining == 0) readLineEnd(); // the end of the chunk just finished
        readChunkSize();
    }
    return done;
}

std::size_t ChunkedTransferBodyStream::read(void* buffer, std::size_t size) {
    char* const out = static_cast<char*>(buffer);
    // Bytes that peek decoded ahead come first; the rest is decoded straight into the caller's
    // buffer.
    const std::size_t held = std::min(size, m_buffer.size() - m_bufferStart);
    if (held != 0) {
        std::memcpy(out, m_buffer.data() + m_bufferStart, held);
        m_bufferStart += held;
        if (m_bufferStart == m_buffer.size()) {
            m_buffer.clear();
            m_bufferStart = 0;
        }
    }
    std::size_t count = held;
    if (count < size) count += decode(out + count, size - count);
    m_position += static_cast<std::int64_t>(count);
    return count;
}

std::size_t ChunkedTransferBodyStream::peek(void* buffer, std::size_t size) {
    std::size_t held = m_buffer.size() - m_bufferStart;
    if (held < size && !m_eof && m_bufferStart != 0) {
        m_buffer.erase(0, m_bufferStart);
        m_bufferStart = 0;
    }
    // In steps, so that a large request against a small body does not allocate all of it.
    constexpr std::size_t step = 64 * 1024;
    while (held < size && !m_eof) {
        const std::size_t wanted = std::min(size - held, step);
        m_buffer.resize(held + wanted);
        std::size_t got = 0;
        try {
            got = decode(m_buffer.data() + held, wanted);
        } catch (...) {
            m_buffer.resize(held);
            throw;
        }
        m_buffer.resize(held + got);
        held += got;
        if (got < wanted) break;
    }
    const std::size_t count = std::min(size, held);
    if (count != 0) std::memcpy(buffer, m_buffer.data() + m_bufferStart, count);
    return count;
}

std::size_t ChunkedTransferBodyStream::write(const void*, std::size_t) {
    return 0;
}

std::uint32_t ChunkedTransferBodyStream::capabilities() const {
    return Readable | (m_source->capabilities() & Peekable);
}

void ChunkedTransferBodyStream::setEof() {
    m_eof = true;
    m_buffer.clear();
    m_bufferStart = 0;
}

} // namespace Zel::Net::Http
