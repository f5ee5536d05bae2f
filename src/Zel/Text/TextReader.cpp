#include <Zel/IO/IStream.h>
#include <Zel/Text/FormatException.h>
#include <Zel/Text/TextReader.h>
#include <cstring>
#include <string_view>

namespace Zel::Text {
namespace {

constexpr std::size_t bufferSize = 64 * 1024;

// The byte offset of the first malformed sequence, or npos.
std::size_t findInvalidUtf8(std::string_view text) noexcept {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t size = text.size();
    std::size_t i = 0;
    while (i < size) {
        // ASCII runs dominate real files: eight bytes at a time.
        if (i + 8 <= size) {
            std::uint64_t word;
            std::memcpy(&word, bytes + i, 8);
            if ((word & 0x8080808080808080ULL) == 0) {
                i += 8;
                continue;
            }
        }
        const unsigned char lead = bytes[i];
        if (lead < 0x80) {
            ++i;
            continue;
        }
        std::size_t length;
        std::uint32_t minimum;
        std::uint32_t code;
        if ((lead & 0xE0) == 0xC0) {
            length = 2, minimum = 0x80, code = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3, minimum = 0x800, code = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4, minimum = 0x10000, code = lead & 0x07;
        } else {
            return i;
        }
        if (i + length > size) return i;
        for (std::size_t k = 1; k < length; ++k) {
            if ((bytes[i + k] & 0xC0) != 0x80) return i;
            code = code << 6 | (bytes[i + k] & 0x3F);
        }
        if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return i;
        i += length;
    }
    return std::string_view::npos;
}

} // namespace

TextReader::TextReader(IO::IStream& stream) : m_stream(stream), m_buffer(new char[bufferSize]) {}

TextReader::~TextReader() = default;

bool TextReader::fill() {
    if (m_position < m_size) return true;
    if (m_eof) return false;
    m_position = 0;
    m_size = m_stream.read(m_buffer.get(), bufferSize);
    if (m_size == 0) m_eof = true;
    return m_size != 0;
}

bool TextReader::readLine(std::string& line) {
    line.clear();
    if (!fill()) return false;
    bool ended = false;
    while (!ended && fill()) {
        const char* data = m_buffer.get() + m_position;
        const std::size_t available = m_size - m_position;
        const char* newline = static_cast<const char*>(std::memchr(data, '\n', available));
        const std::size_t run = newline ? static_cast<std::size_t>(newline - data) : available;
        line.append(data, run);
        m_position += run + (newline ? 1 : 0);
        ended = newline != nullptr;
    }
    ++m_line;
    if (ended && !line.empty() && line.back() == '\r') line.pop_back();
    if (!m_started) {
        m_started = true;
        // The mark may only open the text; it is not part of the first line.
        if (line.starts_with("\xEF\xBB\xBF")) {
            line.erase(0, 3);
            if (line.empty() && !ended) return false;
        }
    }
    if (const std::size_t bad = findInvalidUtf8(line); bad != std::string_view::npos)
        throw FormatException("Text: invalid UTF-8 | line=" + std::to_string(m_line) +
                                  " | column=" + std::to_string(bad + 1),
                              m_line);
    return true;
}

} // namespace Zel::Text
