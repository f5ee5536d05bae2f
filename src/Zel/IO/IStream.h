#pragma once

#include <Zel/Export.h>

#include <cstddef>
#include <cstdint>

namespace Zel::IO {

// A byte stream: a file, a block of memory, a connection, the body of an HTTP message.
//
// Reads may return fewer bytes than asked for; only 0 means the end. Which operations a stream
// offers is told by capabilities(); an operation it lacks throws NotSupportedException (except
// where a class documents otherwise).
//
// Thread safety: none. A stream is used by one thread at a time.
class ZEL_API IStream {
public:
    // Bits of capabilities().
    enum Capability : std::uint32_t {
        Readable = 1,
        Writable = 2,
        Seekable = 4,    // setPosition works
        Peekable = 8,    // peek works
        LengthKnown = 16 // getLength returns the real total length
    };

    virtual ~IStream();

    // Copies up to `size` bytes into `buffer` and consumes them; 0 at the end of the stream.
    virtual std::size_t read(void* buffer, std::size_t size) = 0;
    // Like read, but the bytes stay in the stream for the next read.
    virtual std::size_t peek(void* buffer, std::size_t size) = 0;
    // Returns the count taken, which may be fewer than `size`.
    virtual std::size_t write(const void* data, std::size_t size) = 0;
    virtual void flush() = 0;

    virtual std::uint32_t capabilities() const = 0;
    // Total length in bytes, or -1 when the stream does not know it.
    virtual std::int64_t getLength() const = 0;
    // Bytes read (or, for streams with one position, read and written) so far.
    virtual std::int64_t getPosition() const = 0;
    virtual void setPosition(std::int64_t position) = 0;

    // Ends the stream for reading at once: later reads return 0.
    virtual void setEof() = 0;

    // Reads the rest of this stream and writes it to `target`; returns the bytes copied.
    virtual std::int64_t copyTo(IStream& target) = 0;

    bool can(Capability capability) const { return (capabilities() & capability) != 0; }
};

} // namespace Zel::IO
