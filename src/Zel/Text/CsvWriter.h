#pragma once

#include <Zel/Export.h>
#include <Zel/Text/CsvOptions.h>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::IO {
class IStream;
}

namespace Zel::Text {

// Writes CSV records to a stream: a field is quoted when it holds the separator, the quote or a
// line break, with its quotes doubled. Each record goes to the stream whole. The stream must
// outlive the writer.
class ZEL_API CsvWriter {
public:
    // ArgumentException when the separator and the quote are equal or either is a line break.
    explicit CsvWriter(IO::IStream& stream, CsvOptions options = {});
    ~CsvWriter();
    CsvWriter(const CsvWriter&) = delete;
    CsvWriter& operator=(const CsvWriter&) = delete;

    void writeRow(const std::vector<std::string>& fields);
    void writeRow(const std::vector<std::string_view>& fields);
    void writeRow(std::initializer_list<std::string_view> fields);

    // One record as text, with its line ending.
    static std::string formatRow(const std::vector<std::string_view>& fields, const CsvOptions& options = {});

private:
    template <class Range>
    void write(const Range& fields);

    IO::IStream& m_stream;
    CsvOptions m_options;
    std::string m_row;
};

} // namespace Zel::Text
