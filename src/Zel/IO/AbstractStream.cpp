#include <Zel/IO/AbstractStream.h>

#include <Zel/IO/StreamUtils.h>
#include <Zel/NotSupportedException.h>

#include <string>

namespace Zel::IO {

AbstractStream::~AbstractStream() = default;

void AbstractStream::throwNotSupported(const char* operation) {
    throw NotSupportedException(std::string("Stream: operation not supported | operation=") + operation);
}

std::size_t AbstractStream::read(void*, std::size_t) {
    throwNotSupported("read");
}

std::size_t AbstractStream::peek(void*, std::size_t) {
    throwNotSupported("peek");
}

std::size_t AbstractStream::write(const void*, std::size_t) {
    throwNotSupported("write");
}

void AbstractStream::flush() {}

std::uint32_t AbstractStream::capabilities() const {
    return 0;
}

std::int64_t AbstractStream::getLength() const {
    return -1;
}

std::int64_t AbstractStream::getPosition() const {
    return -1;
}

void AbstractStream::setPosition(std::int64_t) {
    throwNotSupported("setPosition");
}

void AbstractStream::setEof() {}

std::int64_t AbstractStream::copyTo(IStream& target) {
    // On the stack: copying a small body must not cost an allocation.
    char chunk[16 * 1024];
    std::int64_t copied = 0;
    for (;;) {
        const std::size_t count = read(chunk, sizeof chunk);
        if (count == 0) break;
        writeAll(target, chunk, count);
        copied += static_cast<std::int64_t>(count);
    }
    return copied;
}

} // namespace Zel::IO
