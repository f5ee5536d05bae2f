#include <Zel/IO/StreamUtils.h>

#include <Zel/IO/IOException.h>

#include <algorithm>
#include <cstdint>

namespace Zel::IO {

void writeAll(IStream& stream, const void* data, std::size_t size) {
    const char* bytes = static_cast<const char*>(data);
    std::size_t written = 0;
    while (written < size) {
        const std::size_t count = stream.write(bytes + written, size - written);
        if (count == 0) {
            throw IOException("Stream: write took no bytes | written=" + std::to_string(written) +
                              " | size=" + std::to_string(size));
        }
        written += count;
    }
}

std::string readAll(IStream& stream) {
    std::size_t room = 4096;
    const std::int64_t length = stream.getLength();
    const std::int64_t position = stream.getPosition();
    if ((stream.capabilities() & IStream::LengthKnown) != 0 && length > position && position >= 0) {
        // A hint only: a stream may end early, and a huge length must not allocate up front.
        room = static_cast<std::size_t>(std::min<std::int64_t>(length - position, 1 << 24));
    }
    std::string text(room, '\0');
    std::size_t size = 0;
    for (;;) {
        if (size == text.size()) {
            // Full: one byte tells whether there is more before the text grows.
            char byte;
            if (stream.read(&byte, 1) == 0) break;
            text.resize(text.size() * 2);
            text[size++] = byte;
        }
        const std::size_t count = stream.read(text.data() + size, text.size() - size);
        if (count == 0) break;
        size += count;
    }
    text.resize(size);
    return text;
}

} // namespace Zel::IO
