#pragma once

#include <Zel/IO/AbstractStream.h>

#include <cstdint>
#include <memory>

namespace Zel::IO {

// Reads a source stream through a buffer, so that many small reads (a parser pulling one byte at a
// time) cost one read of the source per buffer. Writes and flush pass straight through to the
// source.
//
// The stream's position counts the bytes handed out by it; the source is usually ahead by what
// the buffer holds. Whoever reads the source behind the buffer's back loses those bytes, so once
// a source is wrapped, read it only through this stream.
//
// readByte and peekByte are inline: one pointer compare and one increment while the buffer has
// bytes. Parsers may also scan the buffered bytes in place (bufferedBegin, bufferedEnd, consume,
// fill).
class ZEL_API BufferedStream final : public AbstractStream {
public:
    static constexpr std::size_t defaultBufferSize = 16 * 1024;

    explicit BufferedStream(std::shared_ptr<IStream> source, std::size_t bufferSize = defaultBufferSize);
    ~BufferedStream() override;
    BufferedStream(const BufferedStream&) = delete;
    BufferedStream& operator=(const BufferedStream&) = delete;

    // The next byte (0..255), consumed; -1 at the end of the source.
    int readByte() { return m_cursor != m_end ? static_cast<unsigned char>(*m_cursor++) : readByteSlow(); }
    // The next byte without consuming it; -1 at the end of the source.
    int peekByte() { return m_cursor != m_end ? static_cast<unsigned char>(*m_cursor) : peekByteSlow(); }

    // Returns what the buffer holds, reading the source once when it holds nothing; a read of at
    // least the buffer's size goes straight to the source.
    std::size_t read(void* buffer, std::size_t size) override;
    // Reads the source once when the buffer holds fewer than `size` bytes (growing the buffer when
    // `size` exceeds it), then copies what there is.
    std::size_t peek(void* buffer, std::size_t size) override;
    std::size_t write(const void* data, std::size_t size) override;
    void flush() override;

    // Readable and writable as the source is; always peekable.
    std::uint32_t capabilities() const override;
    std::int64_t getPosition() const override { return position(); }
    // Drops the buffered bytes; later reads return 0 without asking the source.
    void setEof() override;

    std::int64_t position() const noexcept { return m_consumedBefore + (m_cursor - m_buffer.get()); }
    const std::shared_ptr<IStream>& source() const noexcept { return m_source; }

    // --- in-place access for parsers --------------------------------------------------------
    // The buffered bytes not consumed yet.
    const char* bufferedBegin() const noexcept { return m_cursor; }
    const char* bufferedEnd() const noexcept { return m_end; }
    // Consumes the buffered bytes before `to`, which lies in [bufferedBegin(), bufferedEnd()].
    void consume(const char* to) noexcept { m_cursor = const_cast<char*>(to); }
    // Reads the source once more behind the buffered bytes, moving or growing the buffer when it
    // is full; false when the source gave nothing. Pointers taken before are invalid afterwards.
    bool fill();

private:
    int readByteSlow();
    int peekByteSlow();
    // Makes room for at least `wanted` unconsumed bytes plus one more read.
    void makeRoom(std::size_t wanted);

    std::shared_ptr<IStream> m_source;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_capacity;
    char* m_cursor;
    char* m_end;
    std::int64_t m_consumedBefore = 0; // bytes consumed before m_buffer[0]
    bool m_eof = false;
};

} // namespace Zel::IO
