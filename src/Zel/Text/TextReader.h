#pragma once

#include <Zel/Export.h>
#include <cstdint>
#include <memory>
#include <string>

namespace Zel::IO {
class IStream;
}

namespace Zel::Text {

// Reads a UTF-8 text line by line from a stream: a byte order mark at the start is skipped, lines
// end with LF or CRLF (a CR elsewhere stays in the line), and the line break after the last line
// is optional. Every line is checked to be UTF-8 (no overlong forms, no surrogates, nothing above
// U+10FFFF); a bad one throws FormatException "Text: invalid UTF-8 | line=<n> | column=<byte>".
// The stream must outlive the reader.
class ZEL_API TextReader {
public:
    explicit TextReader(IO::IStream& stream);
    ~TextReader();
    TextReader(const TextReader&) = delete;
    TextReader& operator=(const TextReader&) = delete;

    // The next line without its line break; false at the end of the text.
    bool readLine(std::string& line);
    // The number of the line last read, from 1.
    std::int64_t line() const noexcept { return m_line; }

private:
    bool fill();

    IO::IStream& m_stream;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_position = 0;
    std::size_t m_size = 0;
    bool m_eof = false;
    bool m_started = false;
    std::int64_t m_line = 0;
};

} // namespace Zel::Text
