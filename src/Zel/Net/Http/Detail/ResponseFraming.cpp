#include <Zel/Net/Http/Detail/ResponseFraming.h>
#include <Zel/StringUtils.h>
#include <Zel/Net/Http/HttpException.h>
#include <Zel/Net/Http/Response.h>
#include <cstring>
#include <string_view>

namespace Zel::Net::Http::Detail {

namespace {

bool startsWithName(std::string_view line, std::string_view lowerName) {
    if (line.size() <= lowerName.size() || line[lowerName.size()] != ':') return false;
    for (std::size_t i = 0; i < lowerName.size(); ++i) {
        char c = line[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != lowerName[i]) return false;
    }
    return true;
}

void gather(std::string& values, int& lines, std::string_view value) {
    if (lines++ > 0) values += ',';
    values.append(StringUtils::trimBlanks(value));
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

// Calls `element` with each trimmed member of a comma-separated list.
template <class Element>
void forEachMember(std::string_view list, Element&& element) {
    for (;;) {
        const std::size_t comma = list.find(',');
        element(StringUtils::trimBlanks(list.substr(0, comma)));
        if (comma == std::string_view::npos) return;
        list.remove_prefix(comma + 1);
    }
}

std::int64_t contentLength(std::string_view values) {
    std::int64_t length = -1;
    forEachMember(values, [&](std::string_view member) {
        if (member.empty() || member.size() > 18 ||
            member.find_first_not_of("0123456789") != std::string_view::npos) {
            throw HttpException("HTTP client: invalid Content-Length | value=" + std::string(values));
        }
        std::int64_t value = 0;
        for (const char digit : member)
            value = value * 10 + (digit - '0');
        if (length != -1 && value != length) {
            throw HttpException("HTTP client: conflicting Content-Length values | value=" +
                                std::string(values));
        }
        length = value;
    });
    return length;
}

[[noreturn]] void cutShort(const char* what, std::int64_t received) {
    throw HttpException(std::string("HTTP client: ") + what + " | received=" + std::to_string(received));
}

int nextByte(IO::BufferedStream& stream, std::int64_t received) {
    const int byte = stream.readByte();
    if (byte < 0) cutShort("chunked response body cut short", received);
    return byte;
}

void expectLineEnd(IO::BufferedStream& stream, std::int64_t received) {
    if (nextByte(stream, received) != '\r' || nextByte(stream, received) != '\n') {
        throw HttpException("HTTP client: malformed chunked response body | received=" +
                            std::to_string(received));
    }
}

// Drops the rest of a line (a chunk extension, a trailer field), refusing endless ones.
void skipLine(IO::BufferedStream& stream, std::int64_t received) {
    for (int count = 0; count < 8192; ++count) {
        if (nextByte(stream, received) == '\r') {
            if (nextByte(stream, received) != '\n') break;
            return;
        }
    }
    throw HttpException("HTTP client: malformed chunked response body | received=" +
                        std::to_string(received));
}

void readExactly(IO::BufferedStream& stream, std::int64_t count, std::string& body) {
    const std::size_t start = body.size();
    body.resize(start + static_cast<std::size_t>(count));
    std::size_t done = 0;
    while (done < static_cast<std::size_t>(count)) {
        const std::size_t got =
            stream.read(body.data() + start + done, static_cast<std::size_t>(count) - done);
        if (got == 0) {
            body.resize(start + done);
            throw HttpException("HTTP client: response body cut short | expected=" + std::to_string(count) +
                                " | received=" + std::to_string(done));
        }
        done += got;
    }
}

[[noreturn]] void tooLarge(std::int64_t limit) {
    throw HttpException("HTTP client: response body too large | limit=" + std::to_string(limit));
}

void readChunked(IO::BufferedStream& stream, std::int64_t maxBodySize, std::string& body) {
    std::int64_t total = 0;
    for (;;) {
        std::uint64_t size = 0;
        int digits = 0;
        int byte = nextByte(stream, total);
        for (;; byte = nextByte(stream, total)) {
            int value;
            if (byte >= '0' && byte <= '9') {
                value = byte - '0';
            } else if (byte >= 'a' && byte <= 'f') {
                value = byte - 'a' + 10;
            } else if (byte >= 'A' && byte <= 'F') {
                value = byte - 'A' + 10;
            } else {
                break;
            }
            // 16 digits fill 64 bits; one more would wrap.
            if (++digits > 16)
                throw HttpException("HTTP client: chunk size too long | received=" + std::to_string(total));
            size = size * 16 + static_cast<std::uint64_t>(value);
        }
        if (digits == 0) {
            throw HttpException("HTTP client: malformed chunk size | received=" + std::to_string(total));
        }
        if (byte == ';' || byte == ' ' || byte == '\t') {
            skipLine(stream, total);
        } else if (byte != '\r' || nextByte(stream, total) != '\n') {
            throw HttpException("HTTP client: malformed chunk size | received=" + std::to_string(total));
        }
        if (size == 0) break;
        if (size > static_cast<std::uint64_t>(maxBodySize - total)) tooLarge(maxBodySize);
        readExactly(stream, static_cast<std::int64_t>(size), body);
        total += static_cast<std::int64_t>(size);
        expectLineEnd(stream, total);
    }
    // Trailer fields up to the empty line.
    for (int fields = 0; fields < 256; ++fields) {
        if (stream.peekByte() == '\r') {
            expectLineEnd(stream, total);
            return;
        }
        skipLine(stream, total);
    }
    throw HttpException("HTTP client: too many trailer fields | received=" + std::to_string(total));
}

} // namespace

void bufferResponseHead(IO::BufferedStream& stream, std::size_t maxHeadSize, FramingLines& lines) {
    std::size_t lineStart = 0; // offsets from bufferedBegin: fill may move the buffer
    std::size_t lineNumber = 0;
    for (;;) {
        const char* const begin = stream.bufferedBegin();
        const char* const end = stream.bufferedEnd();
        const void* found =
            std::memchr(begin + lineStart, '\n', static_cast<std::size_t>(end - begin) - lineStart);
        if (found == nullptr) {
            const auto buffered = static_cast<std::size_t>(end - begin);
            if (buffered > maxHeadSize) {
                throw HttpException("HTTP client: response head too large | limit=" +
                                    std::to_string(maxHeadSize));
            }
            if (!stream.fill()) {
                if (buffered == 0) throw HttpException("HTTP client: connection closed before a response");
                cutShort("response head cut short", static_cast<std::int64_t>(buffered));
            }
            continue;
        }
        const char* const newline = static_cast<const char*>(found);
        std::string_view line(begin + lineStart, static_cast<std::size_t>(newline - begin) - lineStart);
        if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
        lineStart = static_cast<std::size_t>(newline - begin) + 1;
        if (lineStart > maxHeadSize) {
            throw HttpException("HTTP client: response head too large | limit=" +
                                std::to_string(maxHeadSize));
        }
        if (lineNumber++ == 0) {
            const std::size_t space = line.find(' ');
            if (space != std::string_view::npos) {
                const std::string_view rest = line.substr(space + 1);
                lines.statusCode.assign(rest.substr(0, rest.find(' ')));
            }
        } else if (line.empty()) {
            return;
        } else if (startsWithName(line, "content-length")) {
            gather(lines.contentLength, lines.contentLengthLines, line.substr(sizeof "content-length"));
        } else if (startsWithName(line, "transfer-encoding")) {
            gather(lines.transferEncoding, lines.transferEncodingLines,
                   line.substr(sizeof "transfer-encoding"));
        }
    }
}

ResponseFraming checkResponseFraming(const Response& response, const FramingLines& lines, bool answersHead) {
    const std::string& code = lines.statusCode;
    if (code.size() != 3 || code.find_first_not_of("0123456789") != std::string::npos || code[0] < '1' ||
        code[0] > '5') {
        throw HttpException("HTTP client: invalid status code | status=" + code);
    }
    const std::int32_t status = response.statusCode();
    if (status < 200 || status == 204 || status == 304 || answersHead) return {};

    if (lines.transferEncodingLines > 0) {
        if (lines.contentLengthLines > 0) {
            throw HttpException(
                "HTTP client: Transfer-Encoding together with Content-Length | transferEncoding=" +
                lines.transferEncoding + " | contentLength=" + lines.contentLength);
        }
        // Only "chunked", once and last, tells where the body ends; any other coding would need a
        // decoder we do not have.
        bool chunked = false;
        forEachMember(lines.transferEncoding, [&](std::string_view member) {
            if (chunked || !equalsIgnoringCase(member, "chunked")) {
                throw HttpException("HTTP client: unsupported Transfer-Encoding | value=" +
                                    lines.transferEncoding);
            }
            chunked = true;
        });
        return {BodyFraming::Chunked, 0};
    }
    if (lines.contentLengthLines > 0) return {BodyFraming::ContentLength, contentLength(lines.contentLength)};
    return {BodyFraming::UntilClose, 0};
}

void readResponseBody(IO::BufferedStream& stream, const ResponseFraming& framing, std::int64_t maxBodySize,
                      std::string& body) {
    switch (framing.framing) {
    case BodyFraming::None:
        return;
    case BodyFraming::ContentLength:
        if (framing.length > maxBodySize) tooLarge(maxBodySize);
        readExactly(stream, framing.length, body);
        return;
    case BodyFraming::Chunked:
        readChunked(stream, maxBodySize, body);
        return;
    case BodyFraming::UntilClose:
        for (;;) {
            const std::size_t start = body.size();
            body.resize(start + 16 * 1024);
            const std::size_t got = stream.read(body.data() + start, 16 * 1024);
            body.resize(start + got);
            if (got == 0) return;
            if (static_cast<std::int64_t>(body.size()) > maxBodySize) tooLarge(maxBodySize);
        }
    }
}

} // namespace Zel::Net::Http::Detail
