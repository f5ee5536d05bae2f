#pragma once

#include <Zel/Export.h>
#include <Zel/Text/CsvOptions.h>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::IO {
class IStream;
}

namespace Zel::Text {

// Reads CSV records one at a time from a stream, in constant memory whatever the file's size.
// Quoted fields may hold separators, doubled quotes and line breaks; an empty line is a record of
// one empty field, and the line break after the last record is optional.
//
// Errors throw FormatException with the line: "CSV: unterminated quoted field", "CSV: quote in
// unquoted field", "CSV: unexpected character after closing quote", "CSV: field too long",
// "CSV: wrong number of fields". The stream must outlive the reader.
class ZEL_API CsvReader {
public:
    explicit CsvReader(IO::IStream& stream, CsvOptions options = {});
    ~CsvReader();
    CsvReader(const CsvReader&) = delete;
    CsvReader& operator=(const CsvReader&) = delete;

    // Fills `fields` with the next record, reusing its strings; false at the end of the stream.
    bool readRow(std::vector<std::string>& fields);

    // The column names when CsvOptions::header is set (empty for an empty file).
    const std::vector<std::string>& header() const noexcept { return m_header; }
    // The index of a column name of the header; -1 when there is none.
    std::ptrdiff_t columnIndex(std::string_view name) const noexcept;
    // The line on which the record last read starts, from 1.
    std::int64_t line() const noexcept { return m_rowLine; }

private:
    enum class End { Separator, Line, Input };

    bool fill();
    End readField(std::string& field, std::size_t index);
    End readQuoted(std::string& field, std::size_t index);
    [[noreturn]] void fail(const std::string& what, std::int64_t line, std::size_t index) const;

    IO::IStream& m_stream;
    CsvOptions m_options;
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_position = 0;
    std::size_t m_size = 0;
    bool m_eof = false;
    std::int64_t m_line = 1;
    std::int64_t m_rowLine = 0;
    bool m_stops[256] = {};
    std::vector<std::string> m_header;
};

} // namespace Zel::Text
