#pragma once

#include <Zel/IO/AbstractStream.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace Zel::IO {
class BufferedStream;
}

namespace Zel::Net::Http {

// A read-only view of the next `length` bytes of a source stream: the body of a message framed by
// "Content-Length". Reading past the length gives 0 and leaves the following bytes (the next
// message) in the source. A source that ends early shows as a read of 0 before the length is
// reached: the caller compares getPosition with getLength to tell.
class ZEL_API ContentLengthBodyStream : public IO::AbstractStream {
public:
    // A negative length reads as an empty body (getLength still returns it).
    ContentLengthBodyStream(std::shared_ptr<IO::IStream> source, std::int64_t length);
    ~ContentLengthBodyStream() override;

    std::size_t read(void* buffer, std::size_t size) override;
    // The source's peek, limited to the bytes of the body.
    std::size_t peek(void* buffer, std::size_t size) override;
    // Read-only: takes nothing and returns 0.
    std::size_t write(const void* data, std::size_t size) override;

    // Readable, peekable and of known length, whatever the source: 25.
    std::uint32_t capabilities() const override;
    std::int64_t getLength() const override { return m_length; }
    std::int64_t getPosition() const override { return m_position; }
    // Ends the body where it stands: the length becomes the position.
    void setEof() override;

    const std::shared_ptr<IO::IStream>& source() const noexcept { return m_source; }

    // The rest of the body in place, when the source is an IO::BufferedStream that holds all of
    // it already; otherwise nothing. Valid until the source is read again.
    std::optional<std::string_view> bufferedRest() const noexcept;
    // Consumes what bufferedRest returned, as reading it would have.
    void consumeBufferedRest() noexcept;

private:
    std::size_t limit(std::size_t size) const noexcept;

    std::int64_t m_length;
    std::int64_t m_position = 0;
    std::shared_ptr<IO::IStream> m_source;
    IO::BufferedStream* m_bufferedSource; // the source again when it is buffered
};

} // namespace Zel::Net::Http
