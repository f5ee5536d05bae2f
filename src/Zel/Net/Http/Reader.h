#pragma once

#include <Zel/Export.h>
#include <Zel/IO/IStream.h>

#include <memory>
#include <set>
#include <string>

namespace Zel::Net::Http {

class Headers;
class Request;
class Response;

// Parses HTTP/1.x message heads from a byte stream and puts a body stream in front of the rest.
//
// The reader never reads past the head: when it returns, the stream stands at the first body
// byte, and the body stream reads on from there only when asked. So a body must be read to its end
// (or the connection dropped) before the next message is read from the same stream. The reader
// pulls one byte at a time; over an IO::BufferedStream that costs a pointer compare, over any
// other stream one read call per byte, so wrap connections in a BufferedStream.
//
// The grammar is strict: a header line is "Name: value" with exactly one space after the colon,
// names of letters, digits and '-', values of printable ASCII and spaces; no tabs, no folded
// lines, CR LF line ends. A malformed head throws Parser::UnexpectedCharException "Unexpected
// character | char=0x.. | position=..." (the position counted from the first byte of the message)
// or Parser::UnexpectedEofException "Unexpected end of data | size=..."; a version that is not
// numbers and dots fails with Version's ArgumentException. What was read before the failure stays
// in the message.
//
// Framing: "Transfer-Encoding: chunked" (exactly) gives a ChunkedTransferBodyStream, any other
// transfer coding or any "Content-Encoding" HttpException "406 Not Acceptable"; else
// "Content-Length" gives a ContentLengthBodyStream. A POST, PUT or PATCH without either fails with
// HttpException "411 Length Required"; a response without either reads until the peer closes
// (its body is the connection stream itself). Requests with other methods get no body stream.
//
// A reader keeps no state between calls; one reader may parse any number of messages, from any
// number of threads at once.
class ZEL_API Reader {
public:
    Reader() = default;
    // Header lines with these names (compared exactly, case included) are parsed but not stored.
    explicit Reader(std::set<std::string, std::less<>> skippedHeaders);

    const std::set<std::string, std::less<>>& skippedHeaders() const noexcept { return m_skippedHeaders; }
    Reader& skipHeader(std::string name);

    // Overwrites `request` with the request read: method, target (the URL is parsed again on
    // demand), version, exactly the headers received, and the body stream.
    void readRequest(const std::shared_ptr<IO::IStream>& stream, Request& request) const;
    // Overwrites `response` the same way; a response always gets a body stream.
    void readResponse(const std::shared_ptr<IO::IStream>& stream, Response& response) const;
    // Parses one header block up to and including its empty line into `headers`, adding to what
    // they hold.
    void readHeaders(IO::IStream& stream, Headers& headers) const;

private:
    std::shared_ptr<IO::IStream> createBodyStream(const std::shared_ptr<IO::IStream>& stream,
                                                  Headers& headers, bool allowUnknownLength) const;

    std::set<std::string, std::less<>> m_skippedHeaders;
};

} // namespace Zel::Net::Http
