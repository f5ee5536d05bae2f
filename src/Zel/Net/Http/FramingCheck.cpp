#include <Zel/Net/Http/FramingCheck.h>
#include <Zel/StringUtils.h>
#include <Zel/Net/Http/Headers.h>
#include <cstring>

namespace Zel::Net::Http {

namespace {

constexpr std::string_view transferEncodingName = "Transfer-Encoding";

constexpr bool isTchar(unsigned char c) noexcept {
    if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) return true;
    switch (c) {
    case '!':
    case '#':
    case '$':
    case '%':
    case '&':
    case '\'':
    case '*':
    case '+':
    case '-':
    case '.':
    case '^':
    case '_':
    case '`':
    case '|':
    case '~':
        return true;
    default:
        return false;
    }
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept {
    return Headers::sameName(a, b);
}

bool isDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

FramingCheck::Verdict refuse(int status, std::string reason) {
    FramingCheck::Verdict verdict;
    verdict.status = status;
    verdict.reason = std::move(reason);
    return verdict;
}

} // namespace

bool FramingCheck::Lines::note(std::string_view name, std::string_view value) {
    if (equalsIgnoringCase(name, Headers::CONTENT_LENGTH)) {
        contentLength.push_back(StringUtils::trimBlanks(value));
        return true;
    }
    if (equalsIgnoringCase(name, transferEncodingName)) {
        transferEncoding.push_back(StringUtils::trimBlanks(value));
        return true;
    }
    return false;
}

std::size_t FramingCheck::Lines::scan(std::string_view block, bool noteFraming) {
    std::size_t count = 0;
    const char* cursor = block.data();
    const char* const end = cursor + block.size();
    while (cursor < end && *cursor != '\r' && *cursor != '\n') {
        const char* lineEnd =
            static_cast<const char*>(std::memchr(cursor, '\n', static_cast<std::size_t>(end - cursor)));
        if (lineEnd == nullptr) lineEnd = end;
        ++count;
        const char first = *cursor;
        if (first == ':') emptyName = true;
        // Only two names matter; a look at the first letter skips nearly every other line.
        else if (noteFraming && (first == 'c' || first == 'C' || first == 't' || first == 'T')) {
            const std::string_view field(cursor, static_cast<std::size_t>(lineEnd - cursor));
            const std::size_t colon = field.find(':');
            if (colon != std::string_view::npos) {
                std::string_view value = field.substr(colon + 1);
                if (!value.empty() && value.back() == '\r') value.remove_suffix(1);
                note(field.substr(0, colon), value);
            }
        }
        cursor = lineEnd + 1;
    }
    complete = noteFraming;
    return count;
}

std::int64_t FramingCheck::parseContentLength(std::string_view text) noexcept {
    std::int64_t result = -1;
    // A comma list ("5, 5") is what a proxy makes of repeated lines: fine as long as all agree.
    while (true) {
        const auto comma = text.find(',');
        const std::string_view item = StringUtils::trimBlanks(text.substr(0, comma));
        // Eighteen digits stay far below 2^63, so nothing can wrap.
        if (item.empty() || item.size() > 18) return -1;
        std::int64_t value = 0;
        for (const char c : item) {
            if (!isDigit(c)) return -1;
            value = value * 10 + (c - '0');
        }
        if (result != -1 && value != result) return -1;
        result = value;
        if (comma == std::string_view::npos) return result;
        text.remove_prefix(comma + 1);
    }
}

bool FramingCheck::isToken(std::string_view text) noexcept {
    if (text.empty()) return false;
    for (const char c : text)
        if (!isTchar(static_cast<unsigned char>(c))) return false;
    return true;
}

FramingCheck::Verdict FramingCheck::checkRequest(std::string_view method, std::string_view target,
                                                 std::string_view version, const Headers& headers,
                                                 const Lines& lines) const {
    if (!isToken(method)) return refuse(400, "method is not a token");
    if (target.empty()) return refuse(400, "empty request target");
    if (version != "1.1" && version != "1.0") {
        // HTTP-version is one digit, a point and one digit: another such version is merely one we
        // do not speak.
        if (version.size() == 3 && isDigit(version[0]) && version[1] == '.' && isDigit(version[2]))
            return refuse(505, "unsupported version");
        return refuse(400, "malformed version");
    }
    return checkFraming(headers, lines, true);
}

FramingCheck::Verdict FramingCheck::checkResponse(std::string_view version, int statusCode,
                                                  const Headers& headers, const Lines& lines,
                                                  std::string_view requestMethod) const {
    if (!(version.size() == 3 && isDigit(version[0]) && version[1] == '.' && isDigit(version[2])))
        return refuse(502, "malformed version");
    if (statusCode < 100 || statusCode > 599) return refuse(502, "status code out of range");
    // These never have a body, whatever their headers claim (RFC 9112 6.3, first rule).
    if (statusCode < 200 || statusCode == 204 || statusCode == 304 || requestMethod == "HEAD") return {};
    Verdict verdict = checkFraming(headers, lines, false);
    if (!verdict.accepted()) verdict.status = 502;
    return verdict;
}

FramingCheck::Verdict FramingCheck::checkFraming(const Headers& headers, const Lines& lines,
                                                 bool request) const {
    std::int64_t length = -1;
    const auto checkLength = [&](std::string_view text) {
        const std::int64_t value = parseContentLength(text);
        if (value < 0 || (length != -1 && value != length)) return false;
        length = value;
        return true;
    };
    if (!lines.contentLength.empty()) {
        for (const std::string_view line : lines.contentLength)
            if (!checkLength(line)) return refuse(400, "invalid Content-Length");
    } else if (!lines.complete) {
        if (const auto value = headers.find(Headers::CONTENT_LENGTH); value && !checkLength(*value))
            return refuse(400, "invalid Content-Length");
    }

    bool hasTransferEncoding = !lines.transferEncoding.empty();
    std::vector<std::string_view> fromHeader;
    const std::vector<std::string_view>* codingLines = &lines.transferEncoding;
    if (!hasTransferEncoding && !lines.complete) {
        if (const auto value = headers.find(transferEncodingName)) {
            hasTransferEncoding = true;
            fromHeader.push_back(*value);
            codingLines = &fromHeader;
        }
    }

    Verdict verdict;
    if (hasTransferEncoding) {
        if (length != -1) return refuse(400, "Transfer-Encoding with Content-Length");
        // Exactly one coding, "chunked": anything else would need a decoder we do not have, or
        // leaves the body without an end a request can have.
        int codings = 0;
        bool chunked = false;
        for (std::string_view line : *codingLines) {
            while (true) {
                const auto comma = line.find(',');
                const std::string_view coding = StringUtils::trimBlanks(line.substr(0, comma));
                if (coding.empty()) return refuse(400, "empty transfer coding");
                ++codings;
                chunked = equalsIgnoringCase(coding, "chunked");
                if (comma == std::string_view::npos) break;
                line.remove_prefix(comma + 1);
            }
        }
        if (codings != 1 || !chunked) return refuse(501, "unsupported transfer coding");
        verdict.body = Body::Chunked;
        return verdict;
    }
    if (length != -1) {
        if (m_maxBodySize >= 0 && length > m_maxBodySize) return refuse(413, "body too large");
        verdict.body = Body::ContentLength;
        verdict.contentLength = length;
        return verdict;
    }
    verdict.body = request ? Body::None : Body::UntilClose;
    return verdict;
}

} // namespace Zel::Net::Http
