#include <Zel/Detail/Simd.h>
#include <Zel/Xml/Detail/DocumentData.h>
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace Zel::Xml::Detail {
namespace {

enum : std::uint8_t { EscapeInText = 1, EscapeInAttribute = 2 };

constexpr std::array<std::uint8_t, 256> makeEscapes() {
    std::array<std::uint8_t, 256> table{};
    table['&'] = EscapeInText | EscapeInAttribute;
    table['<'] = EscapeInText | EscapeInAttribute;
    // '>' only matters after "]]", but escaping it always is simpler than looking back.
    table['>'] = EscapeInText;
    // A CR that survived parsing came from a character reference and must stay one.
    table['\r'] = EscapeInText | EscapeInAttribute;
    table['"'] = EscapeInAttribute;
    // Attribute values are normalised when read: literal tabs and line breaks would become spaces.
    table['\t'] = EscapeInAttribute;
    table['\n'] = EscapeInAttribute;
    return table;
}
constexpr std::array<std::uint8_t, 256> escapes = makeEscapes();

constexpr std::uint64_t ones = 0x0101010101010101ULL;
constexpr std::uint64_t highs = 0x8080808080808080ULL;

// resize() zero-fills: the string grows by steps just ahead of the writing, so that the zeroed
// bytes are still in cache when the text overwrites them.
constexpr std::size_t fillStep = 64 * 1024;

// Copies up to 16 bytes without a call: most of what markup is made of (names, short values, the
// punctuation around them) is that short, and a call to memcpy costs more than the copying.
inline void copyShort(char* out, const char* in, std::size_t size) noexcept {
    if (size >= 8) {
        // Two overlapping words: neither reads nor writes past the `size` bytes.
        const std::uint64_t first = Zel::Detail::loadLittle64(in);
        const std::uint64_t last = Zel::Detail::loadLittle64(in + size - 8);
        Zel::Detail::storeLittle64(out, first);
        Zel::Detail::storeLittle64(out + size - 8, last);
    } else if (size >= 4) {
        std::uint32_t first;
        std::uint32_t last;
        std::memcpy(&first, in, 4);
        std::memcpy(&last, in + size - 4, 4);
        std::memcpy(out, &first, 4);
        std::memcpy(out + size - 4, &last, 4);
    } else if (size > 0) {
        out[0] = in[0];
        out[size / 2] = in[size / 2];
        out[size - 1] = in[size - 1];
    }
}

// Appends to a string through a raw pointer: std::string's own appends check and update its size
// on every call, which costs more than the copying for the short pieces markup is made of.
class Output {
public:
    explicit Output(std::string& text) : m_text(text), m_size(text.size()) {}
    ~Output() { m_text.resize(m_size); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    Output& operator+=(char c) {
        if (m_size == m_text.size()) grow(1);
        m_text.data()[m_size++] = c;
        return *this;
    }
    Output& operator+=(std::string_view text) {
        append(text.data(), text.size());
        return *this;
    }
    void append(const char* data, std::size_t size) {
        if (m_text.size() - m_size < size) grow(size);
        if (size <= 16)
            copyShort(m_text.data() + m_size, data, size);
        else
            std::memcpy(m_text.data() + m_size, data, size);
        m_size += size;
    }
    bool empty() const noexcept { return m_size == 0; }

private:
    void grow(std::size_t size) {
        const std::size_t wanted = m_size + std::max(size, fillStep);
        // Within the capacity only the step is zeroed; past it the string doubles as usual.
        m_text.resize(wanted <= m_text.capacity() ? wanted : std::max(wanted, m_text.capacity() * 2));
    }

    std::string& m_text;
    std::size_t m_size;
};

// The high bit of each byte of the word that may need escaping in `context`: & and < always,
// > in text, the double quote in attributes, and every byte below 0x20 (CR, and in attributes
// TAB and LF; the others cannot occur). Borrows may mark bytes above a marked one, never below:
// a word without marks needs no look at its bytes.
inline std::uint64_t escapeMarks(std::uint64_t word, std::uint8_t context) noexcept {
    const auto equal = [word](char c) {
        const std::uint64_t x = word ^ (ones * static_cast<unsigned char>(c));
        return (x - ones) & ~x;
    };
    const std::uint64_t control = (word - ones * 0x20) & ~word;
    const std::uint64_t other = context == EscapeInText ? equal('>') : equal('"');
    return (equal('&') | equal('<') | other | control) & highs;
}
void escape(std::string_view text, Output& out, std::uint8_t context) {
    std::size_t run = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        // Most text needs no escaping: eight bytes a step until a word may hold a byte that does.
        while (text.size() - i >= 8 && !escapeMarks(Zel::Detail::loadLittle64(text.data() + i), context))
            i += 8;
        if (i == text.size()) break;
        const char c = text[i];
        if (!(escapes[static_cast<unsigned char>(c)] & context)) continue;
        out.append(text.data() + run, i - run);
        run = i + 1;
        switch (c) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\r':
            out += "&#13;";
            break;
        case '\t':
            out += "&#9;";
            break;
        default:
            out += "&#10;";
            break;
        }
    }
    out.append(text.data() + run, text.size() - run);
}

class Writer {
public:
    Writer(Output& out, const std::string& indent) : m_out(out), m_indent(indent) {}

    void node(const NodeData& node, std::size_t depth, bool indented) {
        if (indented) newLine(depth);
        switch (node.type) {
        case NodeType::Document:
            // White space between top-level nodes means nothing, so each gets a line of its own.
            for (const NodeData* child = node.firstChild; child; child = child->nextSibling)
                this->node(*child, 0, !m_out.empty());
            if (!m_indent.empty()) m_out += '\n';
            break;
        case NodeType::Element:
            element(node, depth);
            break;
        case NodeType::Text: {
            std::string_view text = node.value();
            // Text of white space alone (a parsed "&#32;") would be dropped as indentation when
            // read again; a reference for its first character keeps it text.
            if (!text.empty() && text.find_first_not_of(" \t\n") == std::string_view::npos) {
                m_out += text[0] == ' ' ? "&#32;" : text[0] == '\t' ? "&#9;" : "&#10;";
                text.remove_prefix(1);
            }
            escape(text, m_out, EscapeInText);
            break;
        }
        case NodeType::CData: {
            // "]]>" cannot appear inside one section: split it across two.
            m_out += "<![CDATA[";
            std::string_view rest = node.value();
            for (std::size_t at; (at = rest.find("]]>")) != std::string_view::npos;
                 rest.remove_prefix(at + 2)) {
                m_out.append(rest.data(), at + 2);
                m_out += "]]><![CDATA[";
            }
            m_out += rest;
            m_out += "]]>";
            break;
        }
        case NodeType::Comment:
            m_out += "<!--";
            m_out += node.value();
            m_out += "-->";
            break;
        case NodeType::ProcessingInstruction:
            m_out += "<?";
            m_out += node.name();
            if (!node.value().empty()) {
                m_out += ' ';
                m_out += node.value();
            }
            m_out += "?>";
            break;
        case NodeType::Null:
            break;
        }
    }

private:
    void element(const NodeData& element, std::size_t depth) {
        m_out += '<';
        m_out += element.name();
        for (const AttributeData* attribute = element.firstAttribute; attribute;
             attribute = attribute->next) {
            m_out += ' ';
            m_out += attribute->name();
            m_out += "=\"";
            escape(attribute->value(), m_out, EscapeInAttribute);
            m_out += '"';
        }
        if (!element.firstChild) {
            m_out += "/>";
            return;
        }
        m_out += '>';
        // Indenting inside mixed content would add to its text, so only element-only content is.
        const bool indentChildren = !m_indent.empty() && !(element.flags & NodeData::hasTextChild);
        for (const NodeData* child = element.firstChild; child; child = child->nextSibling)
            node(*child, depth + 1, indentChildren);
        if (indentChildren) newLine(depth);
        m_out += "</";
        m_out += element.name();
        m_out += '>';
    }

    // One copy of a line break with the indentation of `depth`, cut from a string grown as needed.
    void newLine(std::size_t depth) {
        const std::size_t size = 1 + depth * m_indent.size();
        while (m_lineBreak.size() < size) {
            if (m_lineBreak.empty()) m_lineBreak += '\n';
            m_lineBreak += m_indent;
        }
        m_out.append(m_lineBreak.data(), size);
    }

    Output& m_out;
    const std::string& m_indent;
    std::string m_lineBreak;
};

} // namespace

void write(const NodeData& node, std::string& out, const std::string& indent, bool declaration) {
    Output output(out);
    if (declaration) output += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
    Writer(output, indent).node(node, 0, false);
}

} // namespace Zel::Xml::Detail
