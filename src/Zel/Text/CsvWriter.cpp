#include <Zel/ArgumentException.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/Text/CsvWriter.h>

namespace Zel::Text {
namespace {

template <class Range>
void format(const Range& fields, const CsvOptions& options, std::string& out) {
    const char special[] = {options.separator, options.quote, '\r', '\n'};
    const std::string_view specials(special, sizeof special);
    bool first = true;
    for (const auto& item : fields) {
        const std::string_view field(item);
        if (!first) out += options.separator;
        first = false;
        if (field.find_first_of(specials) == std::string_view::npos) {
            out += field;
            continue;
        }
        out += options.quote;
        for (const char c : field) {
            if (c == options.quote) out += c;
            out += c;
        }
        out += options.quote;
    }
    out += options.lineEnding;
}

} // namespace

CsvWriter::CsvWriter(IO::IStream& stream, CsvOptions options)
    : m_stream(stream), m_options(std::move(options)) {
    if (m_options.separator == m_options.quote || m_options.separator == '\n' ||
        m_options.separator == '\r' || m_options.quote == '\n' || m_options.quote == '\r')
        throw ArgumentException("CSV: separator and quote must differ and not be line breaks");
}

CsvWriter::~CsvWriter() = default;

template <class Range>
void CsvWriter::write(const Range& fields) {
    m_row.clear();
    format(fields, m_options, m_row);
    IO::writeAll(m_stream, m_row.data(), m_row.size());
}

void CsvWriter::writeRow(const std::vector<std::string>& fields) {
    write(fields);
}
void CsvWriter::writeRow(const std::vector<std::string_view>& fields) {
    write(fields);
}
void CsvWriter::writeRow(std::initializer_list<std::string_view> fields) {
    write(fields);
}

std::string CsvWriter::formatRow(const std::vector<std::string_view>& fields, const CsvOptions& options) {
    std::string out;
    format(fields, options, out);
    return out;
}

} // namespace Zel::Text
