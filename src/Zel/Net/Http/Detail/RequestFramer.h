#pragma once

#include <Zel/Export.h>
#include <Zel/Net/Http/FramingCheck.h>
#include <Zel/Net/Http/Request.h>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Zel::Net::Http::Detail {

// The server's side of one connection without the socket: bytes go in, whole requests (head and
// body) or refusals come out, in order. Keeping the I/O out makes the framing of a connection a pure
// function of its bytes, which the server, the tests and the fuzzer drive alike.
//
// What it guards, in order: the head must end within maxHeadSize bytes and carry at most
// maxHeaderCount header lines before anything parses it (431 beyond either); the request line and
// headers are parsed strictly (400); FramingCheck decides the body (400, 413, 501, 505); the body is
// buffered up to maxBodySize and handed over as an in-memory stream, so a handler never reads from
// the connection. After a refusal the framer stays refused: the connection must be closed.
// Exported for the fuzzer only; not part of the library's interface.
class ZEL_API RequestFramer {
public:
    struct Limits {
        std::size_t maxHeadSize = 8192;
        std::size_t maxHeaderCount = 100;
        std::int64_t maxBodySize = 1 << 20;
    };

    enum class Step {
        NeedMore,     // read more bytes and call next() again
        SendContinue, // the client waits for "100 Continue" before it sends the body
        Request,      // the request is complete
        Refuse        // answer refusalStatus() with "Connection: close", then close
    };

    explicit RequestFramer(const Limits& limits);

    // Room for at least `size` more bytes; commit() what was written there.
    char* prepare(std::size_t size);
    void commit(std::size_t size) noexcept { m_filled += size; }
    void append(std::string_view bytes);

    Step next(Request& request);

    int refusalStatus() const noexcept { return m_refusalStatus; }
    const std::string& refusalReason() const noexcept { return m_refusalReason; }
    // No byte of a next request has arrived.
    bool idle() const noexcept { return m_state == State::Head && m_start == m_filled; }
    bool readingHead() const noexcept { return m_state == State::Head; }

private:
    enum class State { Head, Body, Refused };
    enum class Chunk { Size, SizeEnd, Data, DataCr, DataLf, LastCr, LastLf, Done };

    Step refuse(int status, std::string reason);
    Step parseHead(Request& request);
    Step readBody(Request& request);
    // Advances the chunked scan over what is buffered; Request once the last chunk's CRLF is in.
    Step scanChunks();
    void finishRequest(std::size_t end);

    Limits m_limits;
    FramingCheck m_check;
    std::string m_buffer; // bytes [0, m_filled) are real, the rest is room for the next read
    std::size_t m_filled = 0;
    std::size_t m_start = 0; // first byte of the current request
    std::size_t m_scan = 0;  // where the search for the head's end goes on
    State m_state = State::Head;

    std::size_t m_bodyStart = 0;
    FramingCheck::Verdict m_verdict;
    bool m_continueSent = false;

    Chunk m_chunk = Chunk::Size;
    std::size_t m_chunkPos = 0;
    int m_sizeDigits = 0;
    std::uint64_t m_chunkSize = 0;
    std::uint64_t m_bodyTotal = 0;

    int m_refusalStatus = 0;
    std::string m_refusalReason;
    FramingCheck::Lines m_lines;
};

} // namespace Zel::Net::Http::Detail
