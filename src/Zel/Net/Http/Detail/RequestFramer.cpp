#include <Zel/IO/MemoryStream.h>
#include <Zel/StringUtils.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Net/Http/ChunkedTransferBodyStream.h>
#include <Zel/Net/Http/Detail/RequestFramer.h>
#include <Zel/Net/Http/HttpException.h>
#include <Zel/Net/Http/Reader.h>
#include <Zel/Parser/ParserException.h>
#include <Zel/Version.h>
#include <algorithm>
#include <cstring>

namespace Zel::Net::Http::Detail {

namespace {

constexpr std::string_view headEnd = "\r\n\r\n";

const Reader& headerReader() {
    static const Reader reader;
    return reader;
}

} // namespace

RequestFramer::RequestFramer(const Limits& limits) : m_limits(limits), m_check(limits.maxBodySize) {}

char* RequestFramer::prepare(std::size_t size) {
    if (m_start > 0) {
        // Keep only the current request: what came before it has been answered.
        const std::size_t kept = m_filled - m_start;
        std::memmove(m_buffer.data(), m_buffer.data() + m_start, kept);
        m_filled = kept;
        m_scan -= std::min(m_scan, m_start);
        m_bodyStart -= std::min(m_bodyStart, m_start);
        m_chunkPos -= std::min(m_chunkPos, m_start);
        m_start = 0;
    }
    if (m_buffer.size() < m_filled + size) m_buffer.resize(std::max(m_filled + size, m_buffer.size() * 2));
    return m_buffer.data() + m_filled;
}

void RequestFramer::append(std::string_view bytes) {
    std::memcpy(prepare(bytes.size()), bytes.data(), bytes.size());
    commit(bytes.size());
}

RequestFramer::Step RequestFramer::refuse(int status, std::string reason) {
    m_state = State::Refused;
    m_refusalStatus = status;
    m_refusalReason = std::move(reason);
    return Step::Refuse;
}

RequestFramer::Step RequestFramer::next(Request& request) {
    switch (m_state) {
    case State::Head:
        return parseHead(request);
    case State::Body:
        return readBody(request);
    case State::Refused:
        break;
    }
    return Step::Refuse;
}

RequestFramer::Step RequestFramer::parseHead(Request& request) {
    // Empty lines before a request line are tolerated (RFC 9112 2.2): some clients end a body with
    // an extra CRLF.
    while (m_filled - m_start >= 2 && m_buffer[m_start] == '\r' && m_buffer[m_start + 1] == '\n')
        m_start += 2;
    m_scan = std::max(m_scan, m_start);

    const std::string_view buffered(m_buffer.data(), m_filled);
    const std::size_t from = std::max(m_start, m_scan >= 3 ? m_scan - 3 : 0);
    const std::size_t end = buffered.find(headEnd, from);
    if (end == std::string_view::npos) {
        m_scan = m_filled;
        if (m_filled - m_start > m_limits.maxHeadSize) return refuse(431, "head too large");
        return Step::NeedMore;
    }
    const std::size_t headSize = end + headEnd.size() - m_start;
    if (headSize > m_limits.maxHeadSize) return refuse(431, "head too large");
    const std::string_view head = buffered.substr(m_start, headSize);

    // The request line, strictly: token, SP, target of visible ASCII, SP, "HTTP/", version, CRLF.
    const std::size_t lineEnd = head.find("\r\n");
    const std::string_view line = head.substr(0, lineEnd);
    const std::size_t firstSpace = line.find(' ');
    const std::size_t secondSpace =
        firstSpace == std::string_view::npos ? firstSpace : line.find(' ', firstSpace + 1);
    if (secondSpace == std::string_view::npos) return refuse(400, "malformed request line");
    const std::string_view method = line.substr(0, firstSpace);
    const std::string_view target = line.substr(firstSpace + 1, secondSpace - firstSpace - 1);
    std::string_view protocol = line.substr(secondSpace + 1);
    for (const char c : target)
        if (static_cast<unsigned char>(c) < 0x21 || static_cast<unsigned char>(c) > 0x7E)
            return refuse(400, "malformed request target");
    if (protocol.substr(0, 5) != "HTTP/") return refuse(400, "malformed protocol");
    protocol.remove_prefix(5);

    // Count the header lines and note the framing ones in one walk over the block.
    m_lines.clear();
    const std::size_t headerCount = m_lines.scan(head.substr(lineEnd + 2));
    // The reader takes ": x" as a header without a name; no other HTTP reader would.
    if (m_lines.emptyName) return refuse(400, "empty header name");
    if (headerCount > m_limits.maxHeaderCount) return refuse(431, "too many headers");

    Headers headers;
    try {
        IO::MemoryStream block(head.substr(lineEnd + 2));
        headerReader().readHeaders(block, headers);
    } catch (const Parser::ParserException&) {
        return refuse(400, "malformed header");
    }

    m_verdict = m_check.checkRequest(method, target, protocol, headers, m_lines);
    if (!m_verdict.accepted()) return refuse(m_verdict.status, m_verdict.reason);

    request = Request(std::string(method), std::string(target));
    request.setVersion(Version(protocol[0] - '0', protocol[2] - '0'));
    request.setHeaders(std::move(headers));
    m_bodyStart = m_start + headSize;
    m_state = State::Body;
    m_chunk = Chunk::Size;
    m_chunkPos = m_bodyStart;
    m_sizeDigits = 0;
    m_chunkSize = 0;
    m_bodyTotal = 0;
    m_continueSent = false;
    return readBody(request);
}

RequestFramer::Step RequestFramer::readBody(Request& request) {
    switch (m_verdict.body) {
    case FramingCheck::Body::None:
    case FramingCheck::Body::UntilClose:
        finishRequest(m_bodyStart);
        return Step::Request;
    case FramingCheck::Body::ContentLength: {
        const auto length = static_cast<std::size_t>(m_verdict.contentLength);
        if (m_filled - m_bodyStart < length) {
            if (!m_continueSent && m_filled == m_bodyStart && request.continueExpected()) {
                m_continueSent = true;
                return Step::SendContinue;
            }
            return Step::NeedMore;
        }
        if (length > 0)
            request.setBody(
                std::make_shared<IO::StringStream>(std::string_view(m_buffer.data() + m_bodyStart, length)));
        finishRequest(m_bodyStart + length);
        return Step::Request;
    }
    case FramingCheck::Body::Chunked: {
        const Step step = scanChunks();
        if (step == Step::NeedMore && !m_continueSent && m_filled == m_bodyStart &&
            request.continueExpected()) {
            m_continueSent = true;
            return Step::SendContinue;
        }
        if (step != Step::Request) return step;
        // The scan proved the coding well-formed and bounded; the decoder only strips it.
        auto source = std::make_shared<IO::MemoryStream>(
            std::string_view(m_buffer.data() + m_bodyStart, m_chunkPos - m_bodyStart));
        ChunkedTransferBodyStream decoder(source);
        auto body = std::make_shared<IO::StringStream>();
        decoder.copyTo(*body);
        request.headers().erase("Transfer-Encoding");
        request.setBody(std::move(body));
        finishRequest(m_chunkPos);
        return Step::Request;
    }
    }
    return Step::NeedMore;
}

RequestFramer::Step RequestFramer::scanChunks() {
    const auto maxBody = static_cast<std::uint64_t>(m_limits.maxBodySize);
    while (m_chunkPos < m_filled) {
        const char c = m_buffer[m_chunkPos];
        switch (m_chunk) {
        case Chunk::Size: {
            const int digit = StringUtils::hexDigitValue(c);
            if (digit >= 0) {
                // Sixteen hex digits fill 64 bits: one more could only wrap.
                if (++m_sizeDigits > 16) return refuse(400, "chunk size too long");
                m_chunkSize = m_chunkSize * 16 + static_cast<std::uint64_t>(digit);
            } else if (c == '\r' && m_sizeDigits > 0) {
                m_chunk = Chunk::SizeEnd;
            } else {
                return refuse(400, "malformed chunk size");
            }
            ++m_chunkPos;
            break;
        }
        case Chunk::SizeEnd:
            if (c != '\n') return refuse(400, "malformed chunk size");
            ++m_chunkPos;
            if (m_chunkSize == 0) {
                m_chunk = Chunk::LastCr;
            } else {
                if (m_limits.maxBodySize >= 0 && m_chunkSize > maxBody - m_bodyTotal)
                    return refuse(413, "body too large");
                m_bodyTotal += m_chunkSize;
                m_chunk = Chunk::Data;
            }
            break;
        case Chunk::Data: {
            const std::uint64_t available = m_filled - m_chunkPos;
            const std::uint64_t taken = std::min(available, m_chunkSize);
            m_chunkPos += static_cast<std::size_t>(taken);
            m_chunkSize -= taken;
            if (m_chunkSize == 0) m_chunk = Chunk::DataCr;
            break;
        }
        case Chunk::DataCr:
        case Chunk::LastCr:
            if (c != '\r')
                return refuse(400, m_chunk == Chunk::LastCr ? "trailer fields" : "malformed chunk");
            m_chunk = m_chunk == Chunk::DataCr ? Chunk::DataLf : Chunk::LastLf;
            ++m_chunkPos;
            break;
        case Chunk::DataLf:
        case Chunk::LastLf:
            if (c != '\n') return refuse(400, "malformed chunk");
            ++m_chunkPos;
            if (m_chunk == Chunk::LastLf) {
                m_chunk = Chunk::Done;
                return Step::Request;
            }
            m_chunk = Chunk::Size;
            m_sizeDigits = 0;
            m_chunkSize = 0;
            break;
        case Chunk::Done:
            return Step::Request;
        }
    }
    return m_chunk == Chunk::Done ? Step::Request : Step::NeedMore;
}

void RequestFramer::finishRequest(std::size_t end) {
    m_start = end;
    m_scan = end;
    m_state = State::Head;
}

} // namespace Zel::Net::Http::Detail
