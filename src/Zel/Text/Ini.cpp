#include <Zel/ArgumentException.h>
#include <Zel/IO/MemoryStream.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/Text/FormatException.h>
#include <Zel/Text/Ini.h>
#include <Zel/Text/TextReader.h>
#include <Zel/VariantIterator.h>
#include <cctype>
#include <cstdio>
#include <map>

namespace Zel::Text {
namespace {

bool isBlank(char c) noexcept {
    return c == ' ' || c == '\t';
}

std::string_view trim(std::string_view text) noexcept {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

[[noreturn]] void fail(const std::string& what, std::int64_t line, const std::string& details = {}) {
    throw FormatException("INI: " + what + " | line=" + std::to_string(line) + details, line);
}

// Whatever follows a value or a section header: nothing, or a comment.
void requireEnd(std::string_view rest, std::int64_t line, const char* what) {
    rest = trim(rest);
    if (!rest.empty() && rest.front() != ';' && rest.front() != '#') fail(what, line);
}

void appendUtf8(std::string& out, std::uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

std::string parseValue(std::string_view text, std::int64_t line) {
    text = trim(text);
    if (text.empty()) return {};
    const char quote = text.front();
    if (quote == '\'') {
        const std::size_t close = text.find('\'', 1);
        if (close == std::string_view::npos) fail("unterminated quoted value", line);
        requireEnd(text.substr(close + 1), line, "text after quoted value");
        return std::string(text.substr(1, close - 1));
    }
    if (quote == '"') {
        std::string value;
        for (std::size_t i = 1; i < text.size(); ++i) {
            const char c = text[i];
            if (c == '"') {
                requireEnd(text.substr(i + 1), line, "text after quoted value");
                return value;
            }
            if (c != '\\') {
                value += c;
                continue;
            }
            if (++i == text.size()) break;
            switch (text[i]) {
            case '\\':
                value += '\\';
                break;
            case '"':
                value += '"';
                break;
            case '\'':
                value += '\'';
                break;
            case 'n':
                value += '\n';
                break;
            case 'r':
                value += '\r';
                break;
            case 't':
                value += '\t';
                break;
            case '0':
                value += '\0';
                break;
            case 'u': {
                std::uint32_t code = 0;
                std::size_t digits = 0;
                for (; digits < 4 && i + 1 < text.size() &&
                       std::isxdigit(static_cast<unsigned char>(text[i + 1]));
                     ++digits, ++i)
                    code = code * 16 +
                           static_cast<std::uint32_t>(std::isdigit(static_cast<unsigned char>(text[i + 1]))
                                                          ? text[i + 1] - '0'
                                                          : (text[i + 1] | 0x20) - 'a' + 10);
                if (digits != 4 || (code >= 0xD800 && code <= 0xDFFF))
                    fail("bad escape", line, " | escape=\\u");
                appendUtf8(value, code);
                break;
            }
            default:
                fail("bad escape", line, " | escape=\\" + std::string(1, text[i]));
            }
        }
        fail("unterminated quoted value", line);
    }
    // Unquoted: a ';' or '#' after white space starts a comment.
    for (std::size_t i = 1; i < text.size(); ++i) {
        if ((text[i] == ';' || text[i] == '#') && isBlank(text[i - 1]))
            return std::string(trim(text.substr(0, i)));
    }
    return std::string(text);
}

Variant parseLines(TextReader& reader) {
    Variant tree = Variant::makeMap();
    // Where each name was first seen, for the messages; "" holds the top-level keys.
    std::map<std::string, std::int64_t> sections;
    std::map<std::string, std::map<std::string, std::int64_t>> keys;
    std::string current; // the section being read; "" before the first
    bool inSection = false;
    Variant section;
    const auto flush = [&] {
        if (inSection) tree.setAt(current, std::move(section));
    };
    std::string text;
    while (reader.readLine(text)) {
        const std::int64_t line = reader.line();
        const std::string_view content = trim(text);
        if (content.empty() || content.front() == ';' || content.front() == '#') continue;
        if (content.front() == '[') {
            const std::size_t close = content.find(']');
            if (close == std::string_view::npos) fail("unterminated section name", line);
            requireEnd(content.substr(close + 1), line, "text after section name");
            const std::string name(trim(content.substr(1, close - 1)));
            if (name.empty()) fail("empty section name", line);
            if (const auto seen = sections.find(name); seen != sections.end())
                fail("duplicate section", line,
                     " | section=" + name + " | first=" + std::to_string(seen->second));
            if (const auto top = keys[""].find(name); top != keys[""].end())
                fail("duplicate key", line, " | key=" + name + " | first=" + std::to_string(top->second));
            flush();
            sections.emplace(name, line);
            current = name;
            inSection = true;
            section = Variant::makeMap();
            continue;
        }
        const std::size_t equals = content.find('=');
        if (equals == std::string_view::npos) fail("expected key = value", line);
        const std::string key(trim(content.substr(0, equals)));
        if (key.empty()) fail("empty key", line);
        auto& seen = keys[inSection ? "[" + current : std::string()];
        if (const auto first = seen.find(key); first != seen.end())
            fail("duplicate key", line, " | key=" + key + " | first=" + std::to_string(first->second));
        if (!inSection && sections.count(key))
            fail("duplicate key", line, " | key=" + key + " | first=" + std::to_string(sections[key]));
        seen.emplace(key, line);
        Variant value(parseValue(content.substr(equals + 1), line));
        if (inSection)
            section.setAt(key, std::move(value));
        else
            tree.setAt(key, std::move(value));
    }
    flush();
    return tree;
}

bool needsQuotes(std::string_view value) {
    if (value.empty()) return false;
    if (isBlank(value.front()) || isBlank(value.back()) || value.front() == '"' || value.front() == '\'')
        return true;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const auto c = static_cast<unsigned char>(value[i]);
        if (c < 0x20 || c == 0x7F) return true;
        if ((c == ';' || c == '#') && i > 0 && isBlank(value[i - 1])) return true;
    }
    return false;
}

void writeValue(std::string& out, const std::string& value) {
    if (!needsQuotes(value)) {
        out += value;
        return;
    }
    out += '"';
    for (const char c : value) {
        switch (c) {
        case '\\':
            out += "\\\\";
            break;
        case '"':
            out += "\\\"";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\0':
            out += "\\0";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
                char escape[8];
                std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<unsigned>(c));
                out += escape;
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

void checkName(const std::string& name, bool section) {
    const bool bad =
        name.empty() || trim(name) != name || name.find_first_of("\r\n") != std::string::npos ||
        (section ? name.find(']') != std::string::npos
                 : name.find('=') != std::string::npos || name[0] == '[' || name[0] == ';' || name[0] == '#');
    if (bad) throw ArgumentException("INI: name cannot be written | name=" + name);
}

} // namespace

Variant parseIni(std::string_view text) {
    IO::MemoryStream stream(text);
    TextReader reader(stream);
    return parseLines(reader);
}

Variant parseIni(IO::IStream& stream) {
    TextReader reader(stream);
    return parseLines(reader);
}

std::string writeIni(const Variant& tree) {
    std::string out;
    std::string sections;
    for (const VariantIterator& entry : tree) {
        const Variant& value = entry.value();
        if (!value.isMap()) {
            checkName(entry.key(), false);
            out += entry.key() + " = ";
            writeValue(out, static_cast<std::string>(value));
            out += '\n';
            continue;
        }
        checkName(entry.key(), true);
        sections += "\n[" + entry.key() + "]\n";
        for (const VariantIterator& key : value) {
            if (key.value().isMap() || key.value().isVector())
                throw ArgumentException("INI: nested value cannot be written | key=" + key.key());
            checkName(key.key(), false);
            sections += key.key() + " = ";
            writeValue(sections, static_cast<std::string>(key.value()));
            sections += '\n';
        }
    }
    if (out.empty() && !sections.empty()) sections.erase(0, 1);
    return out + sections;
}

void writeIni(const Variant& tree, IO::IStream& stream) {
    const std::string text = writeIni(tree);
    IO::writeAll(stream, text.data(), text.size());
}

} // namespace Zel::Text
