#pragma once

#include <Zel/IO/BufferedStream.h>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Zel::Net::Http {
class Response;
}

namespace Zel::Net::Http::Detail {

// What a response head says about where its body ends, gathered from the raw head while its end is
// looked for. The reader keeps one value per header name (the last), which is exactly what cannot
// be trusted here: two "Content-Length" lines that disagree must fail, not pick one.
struct FramingLines {
    std::string statusCode;       // the status line's code as sent
    std::string contentLength;    // the values of every "Content-Length" line, joined with ','
    std::string transferEncoding; // the same for "Transfer-Encoding"
    int contentLengthLines = 0;
    int transferEncodingLines = 0;
};

enum class BodyFraming { None, ContentLength, Chunked, UntilClose };

struct ResponseFraming {
    BodyFraming framing = BodyFraming::None;
    std::int64_t length = 0; // for ContentLength
};

// Makes the whole next head stand in the stream's buffer, reading more as needed, and fills `lines`
// on the way. HttpException "HTTP client: connection closed before a response" when the peer closed
// before its first byte, "... response head cut short" after it, "... response head too large"
// past `maxHeadSize`.
void bufferResponseHead(IO::BufferedStream& stream, std::size_t maxHeadSize, FramingLines& lines);

// The framing of a parsed response head, judged by RFC 9112 rather than by the reader's lenient
// choice: 1xx, 204, 304 and answers to HEAD have no body whatever they say; otherwise
// "Transfer-Encoding" must be a list ending in "chunked" alone and without "Content-Length";
// "Content-Length" lines and list members must be the same one to eighteen digits; a response with
// neither runs until the peer closes. Violations throw HttpException.
ResponseFraming checkResponseFraming(const Response& response, const FramingLines& lines, bool answersHead);

// Appends the body to `body`. A chunk-size line of more than 16 hexadecimal digits, a body past
// `maxBodySize`, or one that ends early throws HttpException. Chunk extensions and trailer fields
// are read and dropped.
void readResponseBody(IO::BufferedStream& stream, const ResponseFraming& framing, std::int64_t maxBodySize,
                      std::string& body);

} // namespace Zel::Net::Http::Detail
