#include <Zel/Detail/Simd.h>
#include <Zel/Xml/Detail/DocumentData.h>
#include <Zel/Xml/XmlException.h>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Zel::Xml::Detail {
namespace {

constexpr std::string_view xmlNamespace = "http://www.w3.org/XML/1998/namespace";
constexpr std::string_view xmlnsNamespace = "http://www.w3.org/2000/xmlns/";

// Character classes, one table lookup per byte in the hot loops.
enum : std::uint8_t {
    Space = 1,          // the four XML white-space characters
    NameStart = 2,      // may begin a name; bytes of multi-byte UTF-8 characters count as letters
    NameChar = 4,       // may continue a name
    TextStop = 8,       // ends a run of plain character data: < & ] CR, NUL and other control characters
    AttributeStop = 16, // ends a run of an attribute value: both quotes, < &, CR LF TAB, controls
    Colon = 32,         // so that a name scan learns whether it saw one by OR-ing what it looked up
};

constexpr std::array<std::uint8_t, 256> makeClasses() {
    std::array<std::uint8_t, 256> table{};
    for (int c = 0; c < 0x20; ++c)
        table[c] = TextStop | AttributeStop;
    table['\t'] = Space | AttributeStop;
    table['\n'] = Space | AttributeStop;
    table['\r'] = Space | TextStop | AttributeStop;
    table[' '] = Space;
    for (int c = 'a'; c <= 'z'; ++c)
        table[c] = NameStart | NameChar;
    for (int c = 'A'; c <= 'Z'; ++c)
        table[c] = NameStart | NameChar;
    for (int c = '0'; c <= '9'; ++c)
        table[c] = NameChar;
    for (int c = 0x80; c < 0x100; ++c)
        table[c] = NameStart | NameChar;
    table['_'] = NameStart | NameChar;
    table[':'] = NameStart | NameChar | Colon;
    table['-'] = NameChar;
    table['.'] = NameChar;
    table['<'] = TextStop | AttributeStop;
    table['&'] = TextStop | AttributeStop;
    table[']'] = TextStop;
    table['"'] = AttributeStop;
    table['\''] = AttributeStop;
    return table;
}
constexpr std::array<std::uint8_t, 256> classes = makeClasses();

inline bool is(char c, std::uint8_t bits) noexcept {
    return (classes[static_cast<unsigned char>(c)] & bits) != 0;
}

// The text copy ends in this many NUL bytes, so that the scanners below may load 16 bytes at a
// time without looking where the text ends: a NUL stops them like the byte-wise table does.
constexpr std::size_t padding = 16;

#if ZEL_SIMD_SSE2
// The first byte from `p` on that is `a`, `b`, `c` or `d` or below 0x20.
inline const char* findStop(const char* p, char a, char b, char c, char d) noexcept {
    const __m128i va = _mm_set1_epi8(a), vb = _mm_set1_epi8(b), vc = _mm_set1_epi8(c), vd = _mm_set1_epi8(d);
    const __m128i control = _mm_set1_epi8(0x1F);
    for (;; p += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i hit =
            _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, va), _mm_cmpeq_epi8(v, vb)),
                         _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, vc), _mm_cmpeq_epi8(v, vd)),
                                      _mm_cmpeq_epi8(_mm_min_epu8(v, control), v)));
        if (const int mask = _mm_movemask_epi8(hit)) return p + __builtin_ctz(static_cast<unsigned>(mask));
    }
}
#endif

// The next byte of character data that needs a look: < & ] CR NUL or another control character.
inline char* skipText(char* p) noexcept {
#if ZEL_SIMD_SSE2
    return const_cast<char*>(findStop(p, '<', '&', ']', '<'));
#else
    while (!is(*p, TextStop))
        ++p;
    return p;
#endif
}

// The next byte of an attribute value that needs a look: either quote, < &, control characters.
inline char* skipAttributeValue(char* p) noexcept {
#if ZEL_SIMD_SSE2
    return const_cast<char*>(findStop(p, '"', '\'', '<', '&'));
#else
    while (!is(*p, AttributeStop))
        ++p;
    return p;
#endif
}

// The first byte from `p` on that is not XML white space. Runs of one byte (between attributes)
// are the common case and cost one look; the indentation between elements goes 16 bytes a step.
inline char* skipSpaces(char* p) noexcept {
    if (!is(*p, Space)) return p;
    if (!is(*++p, Space)) return p;
#if ZEL_SIMD_SSE2
    const __m128i space = _mm_set1_epi8(' '), lf = _mm_set1_epi8('\n'), tab = _mm_set1_epi8('\t'),
                  cr = _mm_set1_epi8('\r');
    for (;; p += 16) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const __m128i white = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(v, space), _mm_cmpeq_epi8(v, lf)),
                                           _mm_or_si128(_mm_cmpeq_epi8(v, tab), _mm_cmpeq_epi8(v, cr)));
        if (const unsigned other = static_cast<unsigned>(_mm_movemask_epi8(white)) ^ 0xFFFFu)
            return p + __builtin_ctz(other);
    }
#else
    while (is(*p, Space))
        ++p;
    return p;
#endif
}

// The first byte from `p` on that cannot continue a name; ORs the classes of the bytes passed
// into `seen`. Unrolled: names are short, but the loop overhead is most of what a byte costs.
inline char* skipName(char* p, std::uint8_t& seen) noexcept {
    std::uint8_t all = seen;
    for (;; p += 4) {
        std::uint8_t c = classes[static_cast<unsigned char>(p[0])];
        if (!(c & NameChar)) break;
        all |= c;
        c = classes[static_cast<unsigned char>(p[1])];
        if (!(c & NameChar)) {
            p += 1;
            break;
        }
        all |= c;
        c = classes[static_cast<unsigned char>(p[2])];
        if (!(c & NameChar)) {
            p += 2;
            break;
        }
        all |= c;
        c = classes[static_cast<unsigned char>(p[3])];
        if (!(c & NameChar)) {
            p += 3;
            break;
        }
        all |= c;
    }
    seen = all;
    return p;
}

// The high bit of each byte of the word that decoding must look at: '&', CR, and in attribute
// values every byte below 0x20 (TAB and LF become spaces). Borrows may mark bytes above a marked
// one, never below: a word without marks is copied as it is.
inline std::uint64_t decodeMarks(std::uint64_t word, bool attribute) noexcept {
    constexpr std::uint64_t ones = 0x0101010101010101ULL;
    const std::uint64_t amp = word ^ (ones * '&');
    std::uint64_t marks = (amp - ones) & ~amp;
    if (attribute) {
        marks |= (word - ones * 0x20) & ~word;
    } else {
        const std::uint64_t cr = word ^ (ones * '\r');
        marks |= (cr - ones) & ~cr;
    }
    return marks & 0x8080808080808080ULL;
}

// Whether `size` bytes at `a` and `b` are the same. Names are short: eight bytes a step inline
// cost less than a call to memcmp.
inline bool sameBytes(const char* a, const char* b, std::size_t size) noexcept {
    for (; size >= 8; a += 8, b += 8, size -= 8) {
        if (Zel::Detail::loadLittle64(a) != Zel::Detail::loadLittle64(b)) return false;
    }
    for (; size > 0; ++a, ++b, --size) {
        if (*a != *b) return false;
    }
    return true;
}

bool isXmlChar(std::uint32_t code) noexcept {
    return code == 0x9 || code == 0xA || code == 0xD || (code >= 0x20 && code <= 0xD7FF) ||
           (code >= 0xE000 && code <= 0xFFFD) || (code >= 0x10000 && code <= 0x10FFFF);
}

std::size_t encodeUtf8(std::uint32_t code, char* out) noexcept {
    if (code < 0x80) {
        out[0] = static_cast<char>(code);
        return 1;
    }
    if (code < 0x800) {
        out[0] = static_cast<char>(0xC0 | (code >> 6));
        out[1] = static_cast<char>(0x80 | (code & 0x3F));
        return 2;
    }
    if (code < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (code >> 12));
        out[1] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (code & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (code >> 18));
    out[1] = static_cast<char>(0x80 | ((code >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (code & 0x3F));
    return 4;
}

char predefinedEntity(std::string_view name) noexcept {
    if (name == "lt") return '<';
    if (name == "gt") return '>';
    if (name == "amp") return '&';
    if (name == "quot") return '"';
    if (name == "apos") return '\'';
    return 0;
}

// One parse. The text is a NUL-terminated copy of the source; the parser reads it front to back
// and may rewrite bytes behind its read position (decoding entities in place), never ahead of it.
class Parser {
public:
    Parser(std::string_view source, DocumentData& document, const ParseOptions& options)
        : m_source(source), m_document(document), m_options(options) {
        // Nodes keep 32-bit lengths.
        if (source.size() > maxTextSize) throw XmlException("document too large", 1, 1, limitDetail());
        char* text = new char[source.size() + padding];
        document.text.reset(text);
        document.size = source.size();
        std::memcpy(text, source.data(), source.size());
        std::memset(text + source.size(), 0, padding);
        m_begin = text;
        m_end = text + source.size();
        m_p = text;
        document.node.type = NodeType::Document;
    }

    void run() {
        prolog();
        content();
        epilog();
    }

private:
    // --- errors -------------------------------------------------------------------------------
    static constexpr std::size_t maxTextSize = 0xFFFFFFFF;
    static std::string limitDetail() { return " | limit=" + std::to_string(maxTextSize); }
    [[noreturn]] void fail(const char* at, const std::string& what, const std::string& details = {}) const {
        // Positions are found only on failure: the hot loops never count lines. The original
        // source is used because decoding in place changes the copy behind the read position.
        const std::size_t offset = static_cast<std::size_t>(at - m_begin);
        std::int64_t line = 1;
        std::int64_t column = 1;
        for (std::size_t i = 0; i < offset && i < m_source.size(); ++i) {
            const char c = m_source[i];
            if (c == '\n' || (c == '\r' && (i + 1 >= m_source.size() || m_source[i + 1] != '\n'))) {
                ++line;
                column = 1;
            } else if ((static_cast<unsigned char>(c) & 0xC0) != 0x80 && c != '\r') {
                ++column;
            }
        }
        throw XmlException(what, line, column, details);
    }
    [[noreturn]] void unexpected(const char* at, const char* expected) const {
        if (at >= m_end) fail(at, "unexpected end of document", std::string(" | expected=") + expected);
        fail(at, "unexpected character",
             std::string(" | expected=") + expected + " | found=" + describe(*at));
    }
    static std::string describe(char c) {
        const auto code = static_cast<unsigned char>(c);
        if (code < 0x20 || code >= 0x7F) {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "0x%02X", code);
            return buffer;
        }
        return std::string(1, c);
    }
    [[noreturn]] void invalidCharacter(const char* at) const {
        if (at >= m_end) fail(at, "unexpected end of document");
        fail(at, "invalid character", " | code=" + describe(*at));
    }

    // --- small scanners -----------------------------------------------------------------------
    bool skipSpace() noexcept {
        const char* start = m_p;
        m_p = skipSpaces(m_p);
        return m_p != start;
    }
    bool startsWith(std::string_view token) const noexcept {
        return static_cast<std::size_t>(m_end - m_p) >= token.size() &&
               std::memcmp(m_p, token.data(), token.size()) == 0;
    }
    void expect(char c, const char* expected) {
        if (*m_p != c || m_p >= m_end) unexpected(m_p, expected);
        ++m_p;
    }
    std::string_view name() {
        char* start = m_p;
        if (!is(*start, NameStart)) unexpected(start, "name");
        // Noting a colon on the way spares the namespace code a second pass over most names.
        std::uint8_t seen = classes[static_cast<unsigned char>(*start)];
        m_p = skipName(start + 1, seen);
        m_nameHasColon = (seen & Colon) != 0;
        return {start, static_cast<std::size_t>(m_p - start)};
    }
    // The length of the prefix of a qualified name; refuses names that are not one.
    std::uint32_t prefixLength(std::string_view qualified, const char* at) const {
        // Names are short: a plain loop beats a call to memchr.
        std::size_t length = 0;
        while (length < qualified.size() && qualified[length] != ':')
            ++length;
        if (length == qualified.size()) return 0;
        if (length == 0 || length + 1 == qualified.size() ||
            std::memchr(qualified.data() + length + 1, ':', qualified.size() - length - 1) ||
            !is(qualified[length + 1], NameStart))
            fail(at, "bad qualified name", " | name=" + std::string(qualified));
        return static_cast<std::uint32_t>(length);
    }
    // A quoted literal of the prolog or DOCTYPE; returns its content.
    std::string_view quoted() {
        const char quote = *m_p;
        if (quote != '"' && quote != '\'') unexpected(m_p, "quoted literal");
        const char* start = ++m_p;
        const void* close = std::memchr(start, quote, static_cast<std::size_t>(m_end - start));
        if (!close) fail(start - 1, "unterminated literal");
        m_p = static_cast<char*>(const_cast<void*>(close)) + 1;
        return {start, static_cast<std::size_t>(static_cast<const char*>(close) - start)};
    }
    // Moves past `terminator`, returning what came before; CR LF and lone CR become LF.
    std::string_view until(std::string_view terminator, const char* what) {
        char* start = m_p;
        for (char* at = m_p;;) {
            at = static_cast<char*>(std::memchr(at, terminator[0], static_cast<std::size_t>(m_end - at)));
            if (!at || static_cast<std::size_t>(m_end - at) < terminator.size())
                fail(start, std::string("unterminated ") + what);
            if (std::memcmp(at, terminator.data(), terminator.size()) == 0) {
                for (const char* c = start; c < at; ++c) {
                    if (static_cast<unsigned char>(*c) < 0x20 && !is(*c, Space)) invalidCharacter(c);
                }
                m_p = at + terminator.size();
                return normaliseLineEnds(start, at);
            }
            ++at;
        }
    }
    std::string_view normaliseLineEnds(char* begin, char* end) noexcept {
        char* cr = static_cast<char*>(std::memchr(begin, '\r', static_cast<std::size_t>(end - begin)));
        if (!cr) return {begin, static_cast<std::size_t>(end - begin)};
        char* out = cr;
        for (const char* in = cr; in < end;) {
            if (*in == '\r') {
                *out++ = '\n';
                if (++in < end && *in == '\n') ++in;
            } else {
                *out++ = *in++;
            }
        }
        return {begin, static_cast<std::size_t>(out - begin)};
    }

    // --- tree ---------------------------------------------------------------------------------
    NodeData* append(NodeType type) {
        NodeData* node = m_document.arena.create<NodeData>();
        node->type = type;
        node->flags = 0;
        if (type == NodeType::Text || type == NodeType::CData) m_current->flags |= NodeData::hasTextChild;
        node->prefixLength = 0;
        node->nameSize = 0;
        node->valueSize = 0;
        node->nameData = nullptr;
        node->valueData = nullptr;
        node->namespaceUri = nullptr;
        node->firstChild = nullptr;
        node->nextSibling = nullptr;
        node->firstAttribute = nullptr;
        node->parent = m_current;
        if (NodeData* first = m_current->firstChild) {
            NodeData* last = first->previousSibling;
            last->nextSibling = node;
            node->previousSibling = last;
            first->previousSibling = node;
        } else {
            m_current->firstChild = node;
            node->previousSibling = node;
        }
        return node;
    }
    // Sizes fit: the text is below 4 GiB (see the constructor) and so is what decoding makes of it.
    static void setName(NodeData* node, std::string_view name) noexcept {
        node->nameData = name.data();
        node->nameSize = static_cast<std::uint32_t>(name.size());
    }
    static void setValue(NodeData* node, std::string_view value) noexcept {
        node->valueData = value.data();
        node->valueSize = static_cast<std::uint32_t>(value.size());
    }

    // --- prolog and epilog --------------------------------------------------------------------
    void prolog() {
        if (startsWith("\xEF\xBB\xBF")) {
            m_p += 3;
        } else if (startsWith("\xFE\xFF") || startsWith("\xFF\xFE")) {
            fail(m_p, "unsupported encoding", " | encoding=UTF-16");
        }
        if (startsWith("<?xml") && is(m_p[5], Space)) declaration();
        bool doctype = false;
        m_current = &m_document.node;
        for (;;) {
            skipSpace();
            if (m_p >= m_end) fail(m_p, "no root element");
            if (*m_p != '<') fail(m_p, "text outside the root element");
            if (startsWith("<!--")) {
                comment();
            } else if (m_p[1] == '?') {
                processingInstruction();
            } else if (startsWith("<!DOCTYPE")) {
                if (doctype) fail(m_p, "second DOCTYPE");
                doctype = true;
                doctypeDeclaration();
            } else {
                return;
            }
        }
    }

    void epilog() {
        for (;;) {
            skipSpace();
            if (m_p >= m_end) {
                if (m_p != m_end || *m_p != '\0') invalidCharacter(m_p);
                return;
            }
            if (startsWith("<!--")) {
                comment();
            } else if (startsWith("<?")) {
                processingInstruction();
            } else {
                fail(m_p, "content after the root element");
            }
        }
    }

    void declaration() {
        const char* start = m_p;
        m_p += 5;
        bool version = false;
        for (;;) {
            const bool space = skipSpace();
            if (startsWith("?>")) {
                m_p += 2;
                break;
            }
            if (!space) unexpected(m_p, "?>");
            const char* at = m_p;
            const std::string_view key = name();
            skipSpace();
            expect('=', "=");
            skipSpace();
            const std::string_view value = quoted();
            if (key == "version") {
                if (value.size() < 3 || value.substr(0, 2) != "1.")
                    fail(at, "unsupported XML version", " | version=" + std::string(value));
                version = true;
            } else if (key == "encoding") {
                std::string lower(value);
                for (char& c : lower)
                    c = static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
                if (lower != "utf-8" && lower != "us-ascii" && lower != "ascii")
                    fail(at, "unsupported encoding", " | encoding=" + std::string(value));
            } else if (key != "standalone" || (value != "yes" && value != "no")) {
                fail(at, "bad XML declaration", " | attribute=" + std::string(key));
            }
        }
        if (!version) fail(start, "bad XML declaration", " | missing=version");
    }

    void comment() {
        const char* start = m_p;
        m_p += 4;
        const std::string_view body = until("--", "comment");
        if (*m_p != '>') fail(start, "'--' inside a comment");
        ++m_p;
        if (m_options.keepComments && !m_inDoctype) setValue(append(NodeType::Comment), body);
    }

    void processingInstruction() {
        const char* start = m_p;
        m_p += 2;
        const std::string_view target = name();
        if (target.size() == 3 && (target[0] | 0x20) == 'x' && (target[1] | 0x20) == 'm' &&
            (target[2] | 0x20) == 'l')
            fail(start, "reserved processing instruction target", " | target=" + std::string(target));
        std::string_view data;
        if (startsWith("?>")) {
            m_p += 2;
        } else {
            if (!skipSpace()) unexpected(m_p, "?>");
            data = until("?>", "processing instruction");
        }
        if (m_options.keepProcessingInstructions && !m_inDoctype) {
            NodeData* node = append(NodeType::ProcessingInstruction);
            setName(node, target);
            setValue(node, data);
        }
    }

    // --- DOCTYPE ------------------------------------------------------------------------------
    void doctypeDeclaration() {
        const char* start = m_p;
        if (!m_options.allowDoctype) fail(start, "DOCTYPE not allowed");
        m_p += 9;
        if (!skipSpace()) unexpected(m_p, "white space");
        name();
        skipSpace();
        externalId(false);
        skipSpace();
        if (*m_p == '[') {
            ++m_p;
            internalSubset();
            skipSpace();
        }
        expect('>', ">");
    }

    // SYSTEM "uri" or PUBLIC "id" "uri". Only read, never followed.
    bool externalId(bool publicIdAlone) {
        if (startsWith("SYSTEM")) {
            m_p += 6;
            if (!skipSpace()) unexpected(m_p, "white space");
            quoted();
            return true;
        }
        if (startsWith("PUBLIC")) {
            m_p += 6;
            if (!skipSpace()) unexpected(m_p, "white space");
            quoted();
            const bool space = skipSpace();
            if (publicIdAlone && *m_p == '>') return true;
            if (!space) unexpected(m_p, "white space");
            quoted();
            return true;
        }
        return false;
    }

    void internalSubset() {
        for (;;) {
            skipSpace();
            if (m_p >= m_end) fail(m_p, "unterminated DOCTYPE");
            if (*m_p == ']') {
                ++m_p;
                return;
            }
            if (startsWith("<!ENTITY")) {
                entityDeclaration();
            } else if (startsWith("<!--")) {
                // Comments and PIs inside the DOCTYPE are not part of the tree.
                m_inDoctype = true;
                comment();
                m_inDoctype = false;
            } else if (startsWith("<?")) {
                m_inDoctype = true;
                processingInstruction();
                m_inDoctype = false;
            } else if (startsWith("<!ELEMENT") || startsWith("<!ATTLIST") || startsWith("<!NOTATION")) {
                skipMarkupDeclaration();
            } else if (*m_p == '%') {
                fail(m_p, "parameter entities are not supported");
            } else {
                unexpected(m_p, "markup declaration");
            }
        }
    }

    void skipMarkupDeclaration() {
        const char* start = m_p;
        m_p += 2;
        for (;;) {
            if (m_p >= m_end) fail(start, "unterminated markup declaration");
            if (*m_p == '"' || *m_p == '\'') {
                quoted();
            } else if (*m_p == '>') {
                ++m_p;
                return;
            } else {
                ++m_p;
            }
        }
    }

    void entityDeclaration() {
        m_p += 8;
        if (!skipSpace()) unexpected(m_p, "white space");
        if (*m_p == '%') fail(m_p, "parameter entities are not supported");
        const char* at = m_p;
        const std::string_view entity = name();
        if (entity.find(':') != std::string_view::npos)
            fail(at, "bad entity name", " | name=" + std::string(entity));
        if (!skipSpace()) unexpected(m_p, "white space");
        if (*m_p != '"' && *m_p != '\'') {
            if (externalId(false))
                fail(at, "external entities are not allowed", " | name=" + std::string(entity));
            unexpected(m_p, "entity value");
        }
        const char* literal = m_p + 1;
        const std::string_view raw = quoted();
        // Character references are replaced now, entity references when the entity is used.
        std::string value;
        value.reserve(raw.size());
        for (std::size_t i = 0; i < raw.size();) {
            const char c = raw[i];
            if (c == '%') fail(literal + i, "parameter entities are not supported");
            if (c == '&' && i + 1 < raw.size() && raw[i + 1] == '#') {
                char utf8[4];
                const char* next = characterReference(literal + i, literal + raw.size(), utf8, value);
                i = static_cast<std::size_t>(next - literal);
            } else if (c == '\r') {
                // Line ends are normalised here as everywhere else in the document.
                value += '\n';
                i += i + 1 < raw.size() && raw[i + 1] == '\n' ? 2 : 1;
            } else {
                if (static_cast<unsigned char>(c) < 0x20 && !is(c, Space)) invalidCharacter(literal + i);
                value += c;
                ++i;
            }
        }
        skipSpace();
        if (startsWith("NDATA"))
            fail(at, "external entities are not allowed", " | name=" + std::string(entity));
        expect('>', ">");
        // The first declaration binds; the predefined five cannot be changed.
        if (!predefinedEntity(entity)) m_entities.try_emplace(entity, std::move(value));
    }

    // --- references ---------------------------------------------------------------------------
    // Decodes "&#...;" at `at`, appending the UTF-8 to `out`; returns the position after ';'.
    const char* characterReference(const char* at, const char* end, char* utf8, std::string& out) const {
        const std::size_t length = encodeCharacter(at, end, utf8);
        out.append(utf8, length & 7);
        return at + (length >> 3);
    }
    // Decodes the character reference at `at` into `utf8`; returns (consumed << 3) | bytes.
    std::size_t encodeCharacter(const char* at, const char* end, char* utf8) const {
        const char* p = at + 2;
        std::uint32_t code = 0;
        bool digits = false;
        if (p < end && *p == 'x') {
            for (++p; p < end; ++p) {
                const char c = *p;
                std::uint32_t digit;
                if (c >= '0' && c <= '9')
                    digit = static_cast<std::uint32_t>(c - '0');
                else if (c >= 'a' && c <= 'f')
                    digit = static_cast<std::uint32_t>(c - 'a' + 10);
                else if (c >= 'A' && c <= 'F')
                    digit = static_cast<std::uint32_t>(c - 'A' + 10);
                else
                    break;
                code = code * 16 + digit;
                digits = true;
                if (code > 0x10FFFF) fail(at, "invalid character reference");
            }
        } else {
            for (; p < end && *p >= '0' && *p <= '9'; ++p) {
                code = code * 10 + static_cast<std::uint32_t>(*p - '0');
                digits = true;
                if (code > 0x10FFFF) fail(at, "invalid character reference");
            }
        }
        if (!digits || p >= end || *p != ';') fail(at, "bad character reference");
        if (!isXmlChar(code)) fail(at, "invalid character reference", " | code=" + std::to_string(code));
        const std::size_t bytes = encodeUtf8(code, utf8);
        return (static_cast<std::size_t>(p + 1 - at) << 3) | bytes;
    }

    // The name of "&name;" at `at` (which must end before `end`).
    std::string_view referenceName(const char* at, const char* end) const {
        const char* p = at + 1;
        if (p >= end || !is(*p, NameStart)) fail(at, "bad entity reference");
        for (++p; p < end && is(*p, NameChar); ++p) {
        }
        if (p >= end || *p != ';') fail(at, "bad entity reference");
        return {at + 1, static_cast<std::size_t>(p - at - 1)};
    }

    // Decodes character data or an attribute value in place, where the result never grows;
    // entities from the DOCTYPE may grow it, and then the result goes to the arena.
    std::string_view decode(char* begin, char* end, bool attribute) {
        char* out = begin;
        for (const char* in = begin; in < end;) {
            // Runs with nothing to decode move a word at a time; out never passes in.
            for (; end - in >= 8; in += 8, out += 8) {
                const std::uint64_t word = Zel::Detail::loadLittle64(in);
                if (decodeMarks(word, attribute)) break;
                Zel::Detail::storeLittle64(out, word);
            }
            if (in == end) break;
            const char c = *in;
            if (c == '&') {
                if (in[1] == '#') {
                    const std::size_t length = encodeCharacter(in, end, out);
                    out += length & 7;
                    in += length >> 3;
                    continue;
                }
                const std::string_view entity = referenceName(in, end);
                if (const char replacement = predefinedEntity(entity)) {
                    *out++ = replacement;
                    in += entity.size() + 2;
                    continue;
                }
                std::string grown(begin, out);
                decodeInto(grown, in, end, attribute, in);
                if (grown.size() > maxTextSize) fail(in, "document too large", limitDetail());
                char* stored = m_document.arena.allocateChars(grown.size());
                std::memcpy(stored, grown.data(), grown.size());
                return {stored, grown.size()};
            }
            if (c == '\r') {
                *out++ = attribute ? ' ' : '\n';
                if (++in < end && *in == '\n') ++in;
            } else if (attribute && (c == '\n' || c == '\t')) {
                *out++ = ' ';
                ++in;
            } else {
                *out++ = *in++;
            }
        }
        return {begin, static_cast<std::size_t>(out - begin)};
    }

    // The slow road: appends decoded [in, end) to `out`, expanding declared entities. Errors inside
    // an entity's text are reported at `origin`, the reference in the document.
    void decodeInto(std::string& out, const char* in, const char* end, bool attribute, const char* origin,
                    int depth = 0) {
        // Only bytes an entity produces count against the limit, not the document's own text.
        const auto emit = [&](const char* bytes, std::size_t size) {
            out.append(bytes, size);
            if (depth > 0) spend(size, origin);
        };
        while (in < end) {
            const char c = *in;
            const char* here = depth == 0 ? in : origin;
            if (c == '&') {
                if (in + 1 < end && in[1] == '#') {
                    char utf8[4];
                    const std::size_t length = encodeCharacter(in, end, utf8);
                    emit(utf8, length & 7);
                    in += length >> 3;
                    continue;
                }
                const std::string_view entity = referenceName(in, end);
                in += entity.size() + 2;
                if (const char replacement = predefinedEntity(entity)) {
                    emit(&replacement, 1);
                    continue;
                }
                expand(out, entity, attribute, here, depth + 1);
                continue;
            }
            if (c == '<' && depth > 0) fail(origin, "markup in entity text is not supported");
            if (c == '\r' && depth == 0) {
                emit(attribute ? " " : "\n", 1);
                if (++in < end && *in == '\n') ++in;
            } else if (attribute && (c == '\n' || c == '\t' || c == '\r')) {
                emit(" ", 1);
                ++in;
            } else {
                emit(in, 1);
                ++in;
            }
        }
    }

    void expand(std::string& out, std::string_view entity, bool attribute, const char* origin, int depth) {
        const auto found = m_entities.find(entity);
        if (found == m_entities.end()) fail(origin, "undefined entity", " | name=" + std::string(entity));
        // A reference costs at least one unit even when it expands to nothing, so that nesting
        // empty entities cannot spin without limit either.
        spend(1, origin);
        for (const std::string_view active : m_expanding) {
            if (active == entity)
                fail(origin, "recursive entity reference", " | name=" + std::string(entity));
        }
        m_expanding.push_back(entity);
        const std::string& text = found->second;
        decodeInto(out, text.data(), text.data() + text.size(), attribute, origin, depth);
        m_expanding.pop_back();
    }

    void spend(std::size_t bytes, const char* origin) {
        m_expanded += bytes;
        if (m_expanded > m_options.maxEntityExpansion)
            fail(origin, "entity expansion limit exceeded",
                 " | limit=" + std::to_string(m_options.maxEntityExpansion));
    }

    // --- elements -----------------------------------------------------------------------------
    void content() {
        startTag();
        while (m_current != &m_document.node) {
            char* textStart = m_p;
            skipSpace();
            if (*m_p == '<') {
                if (m_p != textStart && m_options.keepWhitespaceText)
                    setValue(append(NodeType::Text), normaliseLineEnds(textStart, m_p));
                markup();
            } else {
                text(textStart);
            }
        }
    }

    void markup() {
        switch (m_p[1]) {
        case '/':
            endTag();
            return;
        case '?':
            processingInstruction();
            return;
        case '!':
            if (startsWith("<!--")) {
                comment();
            } else if (startsWith("<![CDATA[")) {
                m_p += 9;
                const std::string_view body = until("]]>", "CDATA section");
                setValue(append(NodeType::CData), body);
            } else {
                fail(m_p, "unexpected markup");
            }
            return;
        default:
            startTag();
        }
    }

    void text(char* start) {
        bool decoding = false;
        for (;;) {
            m_p = skipText(m_p);
            switch (*m_p) {
            case '<':
                break;
            case '&':
            case '\r':
                decoding = true;
                ++m_p;
                continue;
            case ']':
                if (m_p[1] == ']' && m_p[2] == '>') fail(m_p, "']]>' in text");
                ++m_p;
                continue;
            case '\n':
            case '\t':
                ++m_p;
                continue;
            default:
                if (m_p >= m_end) fail(m_p, "unclosed element", " | name=" + std::string(m_current->name()));
                invalidCharacter(m_p);
            }
            break;
        }
        const std::string_view value = decoding
                                           ? decode(start, m_p, false)
                                           : std::string_view(start, static_cast<std::size_t>(m_p - start));
        // Entities may expand to nothing; an empty text node would not survive writing.
        if (!value.empty()) setValue(append(NodeType::Text), value);
    }

    void startTag() {
        const char* start = m_p;
        ++m_p;
        const std::string_view qualified = name();
        const bool qualifiedHasColon = m_nameHasColon;
        NodeData* element = append(NodeType::Element);
        setName(element, qualified);
        AttributeData* last = nullptr;
        std::size_t count = 0;
        bool declares = false;
        bool prefixed = false;
        bool empty = false;
        for (;;) {
            const bool space = skipSpace();
            if (*m_p == '>') {
                ++m_p;
                break;
            }
            if (*m_p == '/') {
                if (m_p[1] != '>') unexpected(m_p + 1, ">");
                m_p += 2;
                empty = true;
                break;
            }
            if (!space) unexpected(m_p, "white space, > or />");
            const char* at = m_p;
            AttributeData* attribute = m_document.arena.create<AttributeData>();
            const std::string_view attributeName = name();
            attribute->nameData = attributeName.data();
            attribute->nameSize = static_cast<std::uint32_t>(attributeName.size());
            const bool attributeHasColon = m_nameHasColon;
            attribute->namespaceUri = nullptr;
            attribute->next = nullptr;
            attribute->prefixLength = 0;
            checkRepeated(element, attribute, ++count, at);
            skipSpace();
            expect('=', "=");
            skipSpace();
            const std::string_view value = attributeValue();
            attribute->valueData = value.data();
            attribute->valueSize = static_cast<std::uint32_t>(value.size());
            if (attributeName.size() >= 5 && std::memcmp(attributeName.data(), "xmlns", 5) == 0 &&
                (attributeName.size() == 5 || attributeName[5] == ':'))
                declares = true;
            else if (attributeHasColon)
                prefixed = true;
            if (last)
                last->next = attribute;
            else
                element->firstAttribute = attribute;
            last = attribute;
        }
        if (declares) declareNamespaces(element, start);
        element->prefixLength = qualifiedHasColon ? prefixLength(qualified, start) : 0;
        if (element->prefixLength)
            resolve(element, start);
        else
            element->namespaceUri = m_defaultNamespace;
        if (prefixed) resolveAttributes(element, start);
        if (empty) {
            // An empty element closes at once.
            if (!m_scopes.empty() && m_scopes.back().first == element) leaveScope();
            return;
        }
        if (++m_depth > m_options.maxDepth)
            fail(start, "nesting too deep", " | limit=" + std::to_string(m_options.maxDepth));
        m_current = element;
    }

    // Refuses a name the element already has; `count` includes the new attribute, which is not
    // linked yet. With a handful of attributes comparing lengths first and then the bytes beats
    // any hashing; data exports with dozens per element go through a small open-addressed table
    // that is never cleared: each element stamps its entries with a number of its own.
    void checkRepeated(const NodeData* element, const AttributeData* attribute, std::size_t count,
                       const char* at) {
        const std::string_view name = attribute->name();
        if (count <= linearLimit) {
            // From an array rather than along the list: no load waits for the one before.
            for (std::size_t i = 0; i + 1 < count; ++i) {
                if (m_firstNames[i].size() == name.size() &&
                    sameBytes(m_firstNames[i].data(), name.data(), name.size()))
                    fail(at, "repeated attribute", " | name=" + std::string(name));
            }
            m_firstNames[count - 1] = name;
            return;
        }
        if (count == linearLimit + 1) {
            if (++m_stamp == 0) { // wrapped: stamps of long ago would match again
                std::fill(m_slots.begin(), m_slots.end(), Slot{});
                m_stamp = 1;
            }
            if (m_slots.empty()) m_slots.resize(64);
            for (const AttributeData* other = element->firstAttribute; other; other = other->next)
                insertSlot(other);
        }
        if (count * 2 > m_slots.size()) {
            // Grown and refilled: stamps in the new table start over.
            m_slots.assign(m_slots.size() * 2, Slot{});
            m_stamp = 1;
            for (const AttributeData* other = element->firstAttribute; other; other = other->next)
                insertSlot(other);
        }
        if (!insertSlot(attribute)) fail(at, "repeated attribute", " | name=" + std::string(name));
    }

    // False when an attribute of that name is in the table already.
    bool insertSlot(const AttributeData* attribute) noexcept {
        const std::string_view name = attribute->name();
        // Length and three bytes tell apart the names of real documents (which often share
        // their beginnings); a collision only costs a comparison.
        const auto byte = [&](std::size_t i) {
            return static_cast<std::uint32_t>(static_cast<unsigned char>(name[i]));
        };
        const std::uint32_t key = static_cast<std::uint32_t>(name.size()) ^ byte(0) << 8 ^
                                  byte(name.size() / 2) << 16 ^ byte(name.size() - 1) << 24;
        const std::size_t mask = m_slots.size() - 1;
        for (std::size_t i = (key * 0x9E3779B1u) >> 16 & mask;; i = (i + 1) & mask) {
            Slot& slot = m_slots[i];
            if (slot.stamp != m_stamp) {
                slot = {m_stamp, attribute};
                return true;
            }
            if (slot.attribute->name() == name) return false;
        }
    }

    std::string_view attributeValue() {
        const char quote = *m_p;
        if (quote != '"' && quote != '\'') unexpected(m_p, "quoted attribute value");
        char* start = ++m_p;
        bool decoding = false;
        for (;;) {
            m_p = skipAttributeValue(m_p);
            const char c = *m_p;
            if (c == quote) break;
            switch (c) {
            case '"':
            case '\'':
                break;
            case '&':
            case '\r':
            case '\n':
            case '\t':
                decoding = true;
                break;
            case '<':
                fail(m_p, "'<' in attribute value");
            default:
                if (m_p >= m_end) fail(start - 1, "unterminated attribute value");
                invalidCharacter(m_p);
            }
            ++m_p;
        }
        char* end = m_p++;
        return decoding ? decode(start, end, true)
                        : std::string_view(start, static_cast<std::size_t>(end - start));
    }

    void endTag() {
        m_p += 2;
        const char* at = m_p;
        // Compared in place against the open element's name: no scan for where the name ends.
        const std::string_view expected = m_current->name();
        const std::size_t size = expected.size();
        if (static_cast<std::size_t>(m_end - m_p) > size && sameBytes(m_p, expected.data(), size) &&
            !is(m_p[size], NameChar)) {
            m_p += size;
        } else {
            const std::string_view closing = name();
            fail(at, "mismatched end tag",
                 " | expected=" + std::string(expected) + " | found=" + std::string(closing));
        }
        skipSpace();
        if (*m_p != '>') unexpected(m_p, ">");
        ++m_p;
        if (!m_scopes.empty() && m_scopes.back().first == m_current) leaveScope();
        --m_depth;
        m_current = m_current->parent;
    }

    // --- namespaces ---------------------------------------------------------------------------
    void declareNamespaces(NodeData* element, const char* at) {
        m_scopes.emplace_back(element, m_namespaces.size());
        for (AttributeData* attribute = element->firstAttribute; attribute; attribute = attribute->next) {
            const std::string_view qualified = attribute->name();
            if (qualified.size() < 5 || qualified.substr(0, 5) != "xmlns" ||
                (qualified.size() > 5 && qualified[5] != ':'))
                continue;
            attribute->namespaceUri = &xmlnsNamespace;
            // Stored once, for the elements and attributes in its scope to point to.
            std::string_view* uri = m_document.arena.create<std::string_view>();
            *uri = attribute->value();
            if (qualified.size() == 5) {
                m_namespaces.emplace_back(std::string_view(), uri);
                continue;
            }
            attribute->prefixLength = 5;
            const std::string_view prefix = qualified.substr(6);
            if (prefix.empty() || prefix.find(':') != std::string_view::npos || !is(prefix[0], NameStart))
                fail(at, "bad qualified name", " | name=" + std::string(qualified));
            if (uri->empty()) fail(at, "empty namespace declaration", " | prefix=" + std::string(prefix));
            if (prefix == "xmlns" || (prefix == "xml") != (*uri == xmlNamespace))
                fail(at, "reserved namespace prefix", " | prefix=" + std::string(prefix));
            m_namespaces.emplace_back(prefix, uri);
        }
        findDefaultNamespace();
    }

    void leaveScope() {
        m_namespaces.resize(m_scopes.back().second);
        m_scopes.pop_back();
        findDefaultNamespace();
    }

    // Kept at hand: every element without a prefix takes it.
    void findDefaultNamespace() noexcept {
        m_defaultNamespace = nullptr;
        for (auto binding = m_namespaces.rbegin(); binding != m_namespaces.rend(); ++binding) {
            if (binding->first.empty()) {
                m_defaultNamespace = binding->second;
                return;
            }
        }
    }

    // Null for no namespace.
    const std::string_view* lookup(std::string_view prefix, const char* at) const {
        for (auto binding = m_namespaces.rbegin(); binding != m_namespaces.rend(); ++binding) {
            if (binding->first == prefix) return binding->second;
        }
        if (prefix.empty()) return nullptr;
        if (prefix == "xml") return &xmlNamespace;
        fail(at, "undeclared namespace prefix", " | prefix=" + std::string(prefix));
    }

    void resolve(NodeData* element, const char* at) {
        element->namespaceUri = lookup({element->nameData, element->prefixLength}, at);
    }

    void resolveAttributes(NodeData* element, const char* at) {
        for (AttributeData* attribute = element->firstAttribute; attribute; attribute = attribute->next) {
            if (attribute->namespaceUri) continue; // a declaration
            attribute->prefixLength = prefixLength(attribute->name(), at);
            if (!attribute->prefixLength) continue;
            attribute->namespaceUri = lookup({attribute->nameData, attribute->prefixLength}, at);
            // Two prefixes bound to one URI still name the same attribute.
            for (const AttributeData* other = element->firstAttribute; other != attribute;
                 other = other->next) {
                if (other->prefixLength && other->namespaceView() == attribute->namespaceView() &&
                    other->name().substr(other->prefixLength + 1) ==
                        attribute->name().substr(attribute->prefixLength + 1))
                    fail(at, "repeated attribute", " | name=" + std::string(attribute->name()));
            }
        }
    }

    std::string_view m_source;
    DocumentData& m_document;
    const ParseOptions& m_options;
    char* m_begin = nullptr;
    char* m_end = nullptr;
    char* m_p = nullptr;
    NodeData* m_current = nullptr;
    bool m_inDoctype = false;
    std::size_t m_depth = 0;
    std::vector<std::pair<std::string_view, const std::string_view*>> m_namespaces; // prefix → URI in scope
    std::vector<std::pair<const NodeData*, std::size_t>> m_scopes; // element → bindings before it
    std::unordered_map<std::string_view, std::string> m_entities;
    std::vector<std::string_view> m_expanding;
    struct Slot {
        std::uint32_t stamp = 0;
        const AttributeData* attribute = nullptr;
    };
    static constexpr std::size_t linearLimit = 8;
    std::string_view m_firstNames[linearLimit]; // of the element being read
    std::vector<Slot> m_slots;                  // names of an element with many attributes, see checkRepeated
    std::uint32_t m_stamp = 0;
    const std::string_view* m_defaultNamespace = nullptr; // the one in scope
    bool m_nameHasColon = false;
    std::size_t m_expanded = 0;
};

} // namespace

void parse(std::string_view source, DocumentData& document, const ParseOptions& options) {
    Parser(source, document, options).run();
}

} // namespace Zel::Xml::Detail
