#pragma once

#include <Zel/IO/AbstractStream.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Zel::IO {
class BufferedStream;
}

namespace Zel::Net::Http {

// A read-only decoder of the chunked transfer coding over a source stream.
//
// Each chunk is a size line of hexadecimal digits ending in CR LF, the data, and CR LF; a size of
// 0 ends the body and must be followed by CR LF at once. Chunk extensions, spaces and trailer
// fields are refused. The decoder reads only as far as the caller asks: the last chunk and its CR
// LF are consumed by the read that returns 0, after which the source stands at the next message.
//
// Failures: Parser::UnexpectedCharException "Unexpected character | char=0x.. | position=..."
// (the position counted over the source bytes this decoder consumed) and
// Parser::UnexpectedEofException when the source ends inside the body.
class ZEL_API ChunkedTransferBodyStream : public IO::AbstractStream {
public:
    explicit ChunkedTransferBodyStream(std::shared_ptr<IO::IStream> source);
    ~ChunkedTransferBodyStream() override;

    // Fills up to `size` bytes, crossing chunk boundaries, unless the body ends first.
    std::size_t read(void* buffer, std::size_t size) override;
    // Decodes ahead into the stream's own buffer until it holds `size` bytes or the body ends.
    std::size_t peek(void* buffer, std::size_t size) override;
    // Read-only: takes nothing and returns 0.
    std::size_t write(const void* data, std::size_t size) override;

    // Readable, plus the source's peekable bit; the length is never known.
    std::uint32_t capabilities() const override;
    std::int64_t getPosition() const override { return m_position; }
    // Ends the body at once: decoded bytes not read yet are dropped.
    void setEof() override;

    const std::shared_ptr<IO::IStream>& source() const noexcept { return m_source; }

private:
    // Decodes up to `size` body bytes into `out`; fewer only at the end of the body.
    std::size_t decode(char* out, std::size_t size);
    // Reads exactly `size` data bytes of the current chunk.
    void readData(char* out, std::size_t size);
    // A CR LF after a chunk's data or after the last chunk.
    void readLineEnd();
    void readChunkSize();
    int nextByte();
    unsigned char requireByte();
    [[noreturn]] void unexpected(unsigned char byte) const;

    std::string m_buffer; // decoded ahead by peek; m_buffer[m_bufferStart..] not read yet
    std::size_t m_bufferStart = 0;
    std::int64_t m_position = 0;   // bytes handed to the caller
    std::int64_t m_remaining = -1; // data bytes of the current chunk still in the source
    bool m_eof = false;
    std::shared_ptr<IO::IStream> m_source;
    IO::BufferedStream* m_bufferedSource; // the source again when it is buffered: bytes cost no call
    std::int64_t m_consumed = 0;          // source bytes consumed, for the exceptions' positions
};

} // namespace Zel::Net::Http
