#include <Zel/IO/NullStream.h>

namespace Zel::IO {

NullStream::~NullStream() = default;

std::size_t NullStream::read(void*, std::size_t) {
    return 0;
}

std::size_t NullStream::peek(void*, std::size_t) {
    return 0;
}

std::size_t NullStream::write(const void*, std::size_t size) {
    return size;
}

std::uint32_t NullStream::capabilities() const {
    return Readable | Writable | Seekable | Peekable | LengthKnown;
}

std::int64_t NullStream::getLength() const {
    return 0;
}

std::int64_t NullStream::getPosition() const {
    return 0;
}

void NullStream::setPosition(std::int64_t) {}

std::int64_t NullStream::copyTo(IStream&) {
    return 0;
}

} // namespace Zel::IO
