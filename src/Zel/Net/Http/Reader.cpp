#include <Zel/Net/Http/Reader.h>

#include <Zel/ArgumentException.h>
#include <Zel/Detail/Simd.h>
#include <Zel/IO/BufferedStream.h>
#include <Zel/IO/NullStream.h>
#include <Zel/Net/Http/ChunkedTransferBodyStream.h>
#include <Zel/Net/Http/ContentLengthBodyStream.h>
#include <Zel/Net/Http/HttpException.h>
#include <Zel/Net/Http/Method.h>
#include <Zel/Net/Http/Request.h>
#include <Zel/Net/Http/Response.h>
#include <Zel/Net/Http/Status.h>
#include <Zel/Parser/UnexpectedCharException.h>
#include <Zel/Parser/UnexpectedEofException.h>

#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <string_view>
#include <typeinfo>

namespace Zel::Net::Http {

namespace {

// The bytes a field accepts. Most are a contiguous range (printable ASCII), which is scanned 16
// bytes at a time where the processor offers it.
struct CharClass {
    std::array<bool, 256> accepts{};
    unsigned char low = 0;
    unsigned char high = 0;
    bool isRange = false;

    bool operator[](unsigned char c) const noexcept { return accepts[c]; }
};

template <class Accept>
constexpr CharClass makeClass(Accept accept) {
    CharClass chars;
    for (int c = 0; c < 256; ++c)
        chars.accepts[static_cast<std::size_t>(c)] = accept(c);
    return chars;
}

constexpr CharClass makeRange(unsigned char low, unsigned char high) {
    CharClass chars = makeClass([low, high](int c) { return c >= low && c <= high; });
    chars.low = low;
    chars.high = high;
    chars.isRange = true;
    return chars;
}

constexpr bool isLetter(int c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
constexpr bool isDigit(int c) {
    return c >= '0' && c <= '9';
}

constexpr CharClass methodChars = makeClass([](int c) { return isLetter(c); });
constexpr CharClass targetChars = makeRange(0x21, 0x7E);
constexpr CharClass versionChars = makeClass([](int c) { return isDigit(c) || c == '.'; });
constexpr CharClass digitChars = makeClass([](int c) { return isDigit(c); });
constexpr CharClass nameChars = makeClass([](int c) { return isLetter(c) || isDigit(c) || c == '-'; });
// Header values and reason phrases: printable ASCII and the space.
constexpr CharClass textChars = makeRange(0x20, 0x7E);

// The first byte in [cursor, end) that the class refuses, or end.
inline const char* scan(const CharClass& accept, const char* cursor, const char* end) noexcept {
#if ZEL_SIMD_SSE2
    if (accept.isRange) {
        // In the range exactly when (byte - low), unsigned, is at most (high - low).
        const __m128i low = _mm_set1_epi8(static_cast<char>(accept.low));
        const __m128i width = _mm_set1_epi8(static_cast<char>(accept.high - accept.low));
        while (end - cursor >= 16) {
            const __m128i shifted =
                _mm_sub_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(cursor)), low);
            const __m128i inside = _mm_cmpeq_epi8(_mm_min_epu8(shifted, width), shifted);
            const unsigned outside = ~static_cast<unsigned>(_mm_movemask_epi8(inside)) & 0xFFFFu;
            if (outside != 0) return cursor + std::countr_zero(outside);
            cursor += 16;
        }
    }
#endif
    while (cursor != end && accept[static_cast<unsigned char>(*cursor)])
        ++cursor;
    return cursor;
}

// A growable byte buffer whose first N bytes live inside the object, so that the usual head is
// parsed without allocating.
template <std::size_t N>
class TokenBuffer {
public:
    TokenBuffer() noexcept = default;
    TokenBuffer(const TokenBuffer&) = delete;
    TokenBuffer& operator=(const TokenBuffer&) = delete;

    void clear() noexcept { m_size = 0; }
    bool empty() const noexcept { return m_size == 0; }
    std::string_view view() const noexcept { return {data(), m_size}; }

    void push(char c) {
        if (m_size == capacity()) grow(m_size + 1);
        data()[m_size++] = c;
    }
    void append(const char* bytes, std::size_t count) {
        if (count > capacity() - m_size) grow(m_size + count);
        std::memcpy(data() + m_size, bytes, count);
        m_size += count;
    }

private:
    char* data() noexcept { return m_heap ? m_heap.get() : m_inline; }
    const char* data() const noexcept { return m_heap ? m_heap.get() : m_inline; }
    std::size_t capacity() const noexcept { return m_heap ? m_heapCapacity : N; }

    void grow(std::size_t needed) {
        std::size_t capacity = this->capacity() * 2;
        while (capacity < needed)
            capacity *= 2;
        auto bigger = std::make_unique_for_overwrite<char[]>(capacity);
        std::memcpy(bigger.get(), data(), m_size);
        m_heap = std::move(bigger);
        m_heapCapacity = capacity;
    }

    char m_inline[N];
    std::unique_ptr<char[]> m_heap;
    std::size_t m_heapCapacity = 0;
    std::size_t m_size = 0;
};

// Any stream, one read call per byte, so that not one byte past the head is taken from it.
class StreamSource {
public:
    explicit StreamSource(IO::IStream& stream) noexcept : m_stream(stream) {}

    int next() {
        unsigned char byte;
        if (m_stream.read(&byte, 1) != 1) return -1;
        ++m_consumed;
        return byte;
    }

    // Appends bytes of the class to `token` and returns the first byte outside it (consumed), or
    // -1 at the end of the stream.
    template <std::size_t N>
    int collect(const CharClass& accept, TokenBuffer<N>& token) {
        for (;;) {
            const int byte = next();
            if (byte < 0 || !accept[static_cast<unsigned char>(byte)]) return byte;
            token.push(static_cast<char>(byte));
        }
    }

    // collect, with the token handed back as a view of `token`.
    template <std::size_t N>
    int collectView(const CharClass& accept, TokenBuffer<N>& token, std::string_view& view) {
        const int byte = collect(accept, token);
        view = token.view();
        return byte;
    }

    // Views from collectView stay valid: they are views of the token buffer.
    template <std::size_t N>
    void keep(std::string_view&, TokenBuffer<N>&) const noexcept {}

    // Drops bytes up to and including `stop`; returns it, or -1 at the end of the stream.
    int skipTo(unsigned char stop) {
        for (;;) {
            const int byte = next();
            if (byte < 0 || byte == stop) return byte;
        }
    }

    std::int64_t consumed() const noexcept { return m_consumed; }

private:
    IO::IStream& m_stream;
    std::int64_t m_consumed = 0;
};

// A buffered stream, scanned in place: runs of accepted bytes are copied in one go.
class BufferedSource {
public:
    explicit BufferedSource(IO::BufferedStream& stream) noexcept
        : m_stream(stream), m_start(stream.position()) {}

    int next() { return m_stream.readByte(); }

    template <std::size_t N>
    int collect(const CharClass& accept, TokenBuffer<N>& token) {
        for (;;) {
            const char* const begin = m_stream.bufferedBegin();
            const char* const end = m_stream.bufferedEnd();
            const char* const cursor = scan(accept, begin, end);
            token.append(begin, static_cast<std::size_t>(cursor - begin));
            if (cursor != end) {
                m_stream.consume(cursor + 1);
                return static_cast<unsigned char>(*cursor);
            }
            m_stream.consume(end);
            if (!m_stream.fill()) return -1;
        }
    }

    // collect, but a token that lies within the buffered bytes is handed back in place, without
    // copying; `token` is used only when it spans a refill.
    template <std::size_t N>
    int collectView(const CharClass& accept, TokenBuffer<N>& token, std::string_view& view) {
        const char* const begin = m_stream.bufferedBegin();
        const char* const end = m_stream.bufferedEnd();
        const char* const cursor = scan(accept, begin, end);
        if (cursor != end) {
            m_stream.consume(cursor + 1);
            view = std::string_view(begin, static_cast<std::size_t>(cursor - begin));
            return static_cast<unsigned char>(*cursor);
        }
        const int byte = collect(accept, token);
        view = token.view();
        return byte;
    }

    // A view into the buffered bytes lasts until the next refill: copies it into `token` when the
    // next byte would need one.
    template <std::size_t N>
    void keep(std::string_view& view, TokenBuffer<N>& token) {
        if (m_stream.bufferedBegin() != m_stream.bufferedEnd() || view.data() == token.view().data()) return;
        token.clear();
        token.append(view.data(), view.size());
        view = token.view();
    }

    int skipTo(unsigned char stop) {
        for (;;) {
            const char* const begin = m_stream.bufferedBegin();
            const char* const end = m_stream.bufferedEnd();
            if (const void* found = std::memchr(begin, stop, static_cast<std::size_t>(end - begin))) {
                m_stream.consume(static_cast<const char*>(found) + 1);
                return stop;
            }
            m_stream.consume(end);
            if (!m_stream.fill()) return -1;
        }
    }

    std::int64_t consumed() const noexcept { return m_stream.position() - m_start; }

private:
    IO::BufferedStream& m_stream;
    std::int64_t m_start;
};

Version parseVersion(std::string_view text) {
    if (text.size() == 3 && text[0] == '1' && text[1] == '.' && (text[2] == '1' || text[2] == '0')) {
        return Version(1, text[2] - '0');
    }
    return Version::parse(text);
}

// The state machines of the request line, the status line and the header block. Every byte read
// is counted so that a failure can name its position in the message.
template <class Source>
class HeadParser {
public:
    HeadParser(Source& source, const std::set<std::string, std::less<>>& skippedHeaders) noexcept
        : m_source(source), m_skippedHeaders(skippedHeaders) {}

    void requestLine(Request& request, std::string& method, std::string& requestUri) {
        m_line.clear();
        int byte = m_source.collect(methodChars, m_line);
        if (byte != ' ') unexpected(byte);
        method.assign(m_line.view());

        m_line.clear();
        byte = m_source.collect(targetChars, m_line);
        if (byte != ' ') unexpected(byte);
        requestUri.assign(m_line.view());

        matchText("HTTP/");

        m_line.clear();
        byte = m_source.collect(versionChars, m_line);
        if (byte != '\r') unexpected(byte);
        matchByte('\n');
        request.setVersion(parseVersion(m_line.view()));
    }

    void statusLine(Response& response, std::int32_t& statusCode, std::string& reasonPhrase) {
        matchText("HTTP/");

        m_line.clear();
        int byte = m_source.collect(versionChars, m_line);
        if (byte != ' ') unexpected(byte);
        response.setVersion(parseVersion(m_line.view()));

        m_line.clear();
        const std::int64_t codeStart = m_source.consumed();
        byte = m_source.collect(digitChars, m_line);
        if (byte != ' ') unexpected(byte);
        std::int64_t code = 0;
        const std::string_view digits = m_line.view();
        for (std::size_t i = 0; i < digits.size(); ++i) {
            code = code * 10 + (digits[i] - '0');
            // A code that does not fit the field is refused at the digit that makes it too long.
            if (code > std::numeric_limits<std::int32_t>::max()) {
                throw Parser::UnexpectedCharException(static_cast<unsigned char>(digits[i]),
                                                      codeStart + static_cast<std::int64_t>(i));
            }
        }
        statusCode = static_cast<std::int32_t>(code);
        reasonPhrase = Status::text(statusCode);

        m_line.clear();
        byte = m_source.collect(textChars, m_line);
        if (byte != '\r') unexpected(byte);
        matchByte('\n');
        reasonPhrase.assign(m_line.view());
    }

    void headerBlock(Headers& headers) {
        for (;;) {
            m_name.clear();
            int byte = m_source.collect(nameChars, m_name);
            if (byte == ':') {
                matchByte(' ');
                if (!m_skippedHeaders.empty() && m_skippedHeaders.contains(m_name.view())) {
                    if (m_source.skipTo('\r') < 0) endOfData();
                    matchByte('\n');
                    continue;
                }
                m_value.clear();
                std::string_view value;
                byte = m_source.collectView(textChars, m_value, value);
                if (byte != '\r') unexpected(byte);
                m_source.keep(value, m_value);
                matchByte('\n');
                headers.set(m_name.view(), value);
                continue;
            }
            if (byte == '\r' && m_name.empty()) {
                matchByte('\n');
                return;
            }
            unexpected(byte);
        }
    }

private:
    [[noreturn]] void endOfData() const { throw Parser::UnexpectedEofException(m_source.consumed()); }

    // `byte` was the last one consumed; -1 is the end of the data.
    [[noreturn]] void unexpected(int byte) const {
        if (byte < 0) endOfData();
        throw Parser::UnexpectedCharException(static_cast<unsigned char>(byte), m_source.consumed() - 1);
    }

    unsigned char nextByte() {
        const int byte = m_source.next();
        if (byte < 0) endOfData();
        return static_cast<unsigned char>(byte);
    }

    void matchByte(unsigned char expected) {
        const unsigned char byte = nextByte();
        if (byte != expected) unexpected(byte);
    }

    // Reads as many bytes as `text` has, then reports the first that differs.
    void matchText(std::string_view text) {
        constexpr std::size_t longest = 64;
        if (text.size() > longest) throw ArgumentException("Matching of up to 64 characters is supported");
        unsigned char bytes[longest];
        for (std::size_t i = 0; i < text.size(); ++i)
            bytes[i] = nextByte();
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (bytes[i] != static_cast<unsigned char>(text[i])) {
                throw Parser::UnexpectedCharException(
                    bytes[i], m_source.consumed() - static_cast<std::int64_t>(text.size() - i));
            }
        }
    }

    Source& m_source;
    const std::set<std::string, std::less<>>& m_skippedHeaders;
    TokenBuffer<1024> m_line;
    TokenBuffer<64> m_name;
    TokenBuffer<256> m_value;
};

// Runs `parse` with the parser that suits the stream.
template <class Parse>
void withParser(IO::IStream& stream, const std::set<std::string, std::less<>>& skippedHeaders, Parse parse) {
    // BufferedStream is final: comparing the type is all it takes, and much cheaper than a cast.
    if (typeid(stream) == typeid(IO::BufferedStream)) {
        BufferedSource source(static_cast<IO::BufferedStream&>(stream));
        HeadParser<BufferedSource> parser(source, skippedHeaders);
        parse(parser);
    } else {
        StreamSource source(stream);
        HeadParser<StreamSource> parser(source, skippedHeaders);
        parse(parser);
    }
}

void requireStream(const std::shared_ptr<IO::IStream>& stream) {
    if (!stream) throw ArgumentException("HTTP reader: no stream");
}

} // namespace

Reader::Reader(std::set<std::string, std::less<>> skippedHeaders)
    : m_skippedHeaders(std::move(skippedHeaders)) {}

Reader& Reader::skipHeader(std::string name) {
    m_skippedHeaders.insert(std::move(name));
    return *this;
}

void Reader::readRequest(const std::shared_ptr<IO::IStream>& stream, Request& request) const {
    requireStream(stream);
    // The message ends up holding exactly what was received.
    request.m_headers.clear();
    request.m_headers.reserve(0, 512);
    if (!request.m_url.empty()) request.m_url = Url();
    if (!request.m_body || request.m_hasBody) {
        request.m_body = Message::nullBody();
        request.m_hasBody = false;
    }

    withParser(*stream, m_skippedHeaders, [&](auto& parser) {
        parser.requestLine(request, request.m_method, request.m_requestUri);
        parser.headerBlock(request.m_headers);
    });
    if (Method::hasRequestBody(request.m_method)) {
        request.attachBody(createBodyStream(stream, request.m_headers, false), true);
    }
}

void Reader::readResponse(const std::shared_ptr<IO::IStream>& stream, Response& response) const {
    requireStream(stream);
    response.m_headers.clear();
    response.m_headers.reserve(0, 512);
    if (!response.m_body || response.m_hasBody) {
        response.m_body = Message::nullBody();
        response.m_hasBody = false;
    }

    withParser(*stream, m_skippedHeaders, [&](auto& parser) {
        parser.statusLine(response, response.m_statusCode, response.m_reasonPhrase);
        parser.headerBlock(response.m_headers);
    });
    std::shared_ptr<IO::IStream> body = createBodyStream(stream, response.m_headers, true);
    if (body == stream) {
        // Read until the peer closes. The connection's own length (if it tells one) is not the
        // body's, so no "Content-Length" is made up from it.
        const bool isBody = dynamic_cast<const IO::NullStream*>(body.get()) == nullptr;
        response.m_body = std::move(body);
        response.m_hasBody = isBody;
    } else {
        response.attachBody(std::move(body), true);
    }
}

void Reader::readHeaders(IO::IStream& stream, Headers& headers) const {
    withParser(stream, m_skippedHeaders, [&](auto& parser) { parser.headerBlock(headers); });
}

std::shared_ptr<IO::IStream> Reader::createBodyStream(const std::shared_ptr<IO::IStream>& stream,
                                                      Headers& headers, bool allowUnknownLength) const {
    if (const auto coding = headers.find("Transfer-Encoding"); coding && !coding->empty()) {
        // Exactly "chunked": a list of codings or a parameter would need a decoder we refuse to have.
        if (*coding == "chunked") return std::make_shared<ChunkedTransferBodyStream>(stream);
        throw HttpException("406 Not Acceptable");
    }
    if (const auto coding = headers.find("Content-Encoding"); coding && !coding->empty()) {
        throw HttpException("406 Not Acceptable");
    }
    if (const std::int64_t length = headers.contentLength(); length != -1) {
        return std::make_shared<ContentLengthBodyStream>(stream, length);
    }
    if (!allowUnknownLength) throw HttpException("411 Length Required");
    return stream;
}

} // namespace Zel::Net::Http
