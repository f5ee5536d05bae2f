#pragma once

#include <Zel/Export.h>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Net::Http {

class Headers;
class Request;
class Response;

// Decides how long the body of a message head is, refusing every head that two HTTP readers could
// frame differently. The Reader is lenient on purpose (its Content-Length is read from the leading
// digits, a repeated header replaces the earlier one, a GET gets no body stream); a server or a
// client that reads a connection with it runs this check first, so that a proxy in front of it and
// Zel can never disagree about where one message ends and the next begins.
//
// The check works on what was parsed plus the framing lines exactly as they arrived (every
// "Content-Length" and "Transfer-Encoding" line, since Headers keeps only the last of each). It
// never parses the head again.
//
// A refusal carries the status to answer with; after it the position in the stream can no longer be
// trusted, so the connection must be closed (the server answers with "Connection: close").
//
// Thread safety: a check is an immutable value; use it from any number of threads.
class ZEL_API FramingCheck {
public:
    enum class Body {
        None,          // no body at all
        ContentLength, // exactly `contentLength` bytes
        Chunked,       // the chunked coding, at most the body limit once decoded
        UntilClose     // (responses only) the rest of the connection
    };

    struct Verdict {
        int status = 0; // 0 accepted, else the status to answer (400, 413, 501, 505)
        std::string reason;
        Body body = Body::None;
        std::int64_t contentLength = 0;

        bool accepted() const noexcept { return status == 0; }
    };

    // The framing lines of one head as received, values without the surrounding spaces. Unless
    // `complete`, an empty list means the check takes the header's value from the parsed Headers.
    struct Lines {
        std::vector<std::string_view> contentLength;
        std::vector<std::string_view> transferEncoding;
        bool complete = false;  // the lists hold every framing line of the head
        bool emptyName = false; // a line began with ':' (a header without a name)

        void clear() noexcept {
            contentLength.clear();
            transferEncoding.clear();
            complete = false;
            emptyName = false;
        }
        // Records the line when its name is one of the two (case-insensitively); returns whether it was.
        bool note(std::string_view name, std::string_view value);
        // Walks a header block (after the start line, up to its empty line): returns the count of
        // header lines and, with `noteFraming`, records the framing ones and makes the lists complete.
        // The views point into `block`.
        std::size_t scan(std::string_view block, bool noteFraming = true);
    };

    // A negative limit means none.
    explicit FramingCheck(std::int64_t maxBodySize = -1) noexcept : m_maxBodySize(maxBodySize) {}

    std::int64_t maxBodySize() const noexcept { return m_maxBodySize; }

    // `version` is the text after "HTTP/" as received ("1.1"). Every method is framed the same way:
    // a GET with a Content-Length has a body.
    Verdict checkRequest(std::string_view method, std::string_view target, std::string_view version,
                         const Headers& headers, const Lines& lines) const;
    // `requestMethod` is the method of the request answered: a response to HEAD has no body.
    Verdict checkResponse(std::string_view version, int statusCode, const Headers& headers,
                          const Lines& lines, std::string_view requestMethod) const;

    // One to eighteen digits after trimming spaces; a comma list of equal values counts as one.
    // -1 when the text is not such a length.
    static std::int64_t parseContentLength(std::string_view text) noexcept;
    // RFC 9110 token characters.
    static bool isToken(std::string_view text) noexcept;

private:
    Verdict checkFraming(const Headers& headers, const Lines& lines, bool request) const;

    std::int64_t m_maxBodySize;
};

} // namespace Zel::Net::Http
