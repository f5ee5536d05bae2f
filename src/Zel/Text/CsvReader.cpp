#include <Zel/ArgumentException.h>
#include <Zel/IO/IStream.h>
#include <Zel/Text/CsvReader.h>
#include <Zel/Text/FormatException.h>
#include <algorithm>
#include <cstring>

namespace Zel::Text {
namespace {

constexpr std::size_t bufferSize = 64 * 1024;

} // namespace

CsvReader::CsvReader(IO::IStream& stream, CsvOptions options)
    : m_stream(stream), m_options(std::move(options)), m_buffer(new char[bufferSize]) {
    if (m_options.separator == m_options.quote || m_options.separator == '\n' ||
        m_options.separator == '\r' || m_options.quote == '\n' || m_options.quote == '\r')
        throw ArgumentException("CSV: separator and quote must differ and not be line breaks");
    for (const char c : {m_options.separator, m_options.quote, '\r', '\n'})
        m_stops[static_cast<unsigned char>(c)] = true;
    if (m_options.header) {
        std::vector<std::string> names;
        if (readRow(names)) m_header = std::move(names);
    }
}

CsvReader::~CsvReader() = default;

std::ptrdiff_t CsvReader::columnIndex(std::string_view name) const noexcept {
    const auto found = std::find(m_header.begin(), m_header.end(), name);
    return found == m_header.end() ? -1 : found - m_header.begin();
}

bool CsvReader::fill() {
    if (m_position < m_size) return true;
    if (m_eof) return false;
    m_position = 0;
    m_size = m_stream.read(m_buffer.get(), bufferSize);
    if (m_size == 0) m_eof = true;
    return m_size != 0;
}

void CsvReader::fail(const std::string& what, std::int64_t line, std::size_t index) const {
    throw FormatException(
        "CSV: " + what + " | line=" + std::to_string(line) + " | field=" + std::to_string(index + 1), line);
}

bool CsvReader::readRow(std::vector<std::string>& fields) {
    if (!fill()) return false;
    m_rowLine = m_line;
    std::size_t count = 0;
    for (;;) {
        if (count == fields.size()) fields.emplace_back();
        std::string& field = fields[count];
        field.clear();
        const End end = readField(field, count);
        ++count;
        if (end != End::Separator) break;
    }
    fields.resize(count);
    if (!m_header.empty() && count != m_header.size())
        throw FormatException("CSV: wrong number of fields | line=" + std::to_string(m_rowLine) +
                                  " | expected=" + std::to_string(m_header.size()) +
                                  " | found=" + std::to_string(count),
                              m_rowLine);
    return true;
}

CsvReader::End CsvReader::readField(std::string& field, std::size_t index) {
    if (!fill()) return End::Input;
    if (m_buffer[m_position] == m_options.quote) {
        ++m_position;
        return readQuoted(field, index);
    }
    for (;;) {
        const char* data = m_buffer.get();
        std::size_t at = m_position;
        while (at < m_size && !m_stops[static_cast<unsigned char>(data[at])])
            ++at;
        field.append(data + m_position, at - m_position);
        m_position = at;
        if (field.size() > m_options.maxFieldSize) fail("field too long", m_line, index);
        if (at == m_size) {
            if (!fill()) return End::Input;
            continue;
        }
        const char c = data[at];
        ++m_position;
        if (c == m_options.separator) return End::Separator;
        if (c == m_options.quote) fail("quote in unquoted field", m_line, index);
        // A line break: CRLF, LF or a lone CR.
        if (c == '\r' && fill() && m_buffer[m_position] == '\n') ++m_position;
        ++m_line;
        return End::Line;
    }
}

CsvReader::End CsvReader::readQuoted(std::string& field, std::size_t index) {
    const std::int64_t startLine = m_line;
    for (;;) {
        if (!fill()) fail("unterminated quoted field", startLine, index);
        const char* data = m_buffer.get() + m_position;
        const std::size_t available = m_size - m_position;
        const char* quote = static_cast<const char*>(std::memchr(data, m_options.quote, available));
        const std::size_t run = quote ? static_cast<std::size_t>(quote - data) : available;
        field.append(data, run);
        m_line += std::count(data, data + run, '\n');
        m_position += run;
        if (field.size() > m_options.maxFieldSize) fail("field too long", startLine, index);
        if (!quote) continue;
        ++m_position;
        // A doubled quote stands for one; anything else after a quote closes the field.
        if (fill() && m_buffer[m_position] == m_options.quote) {
            field += m_options.quote;
            ++m_position;
            continue;
        }
        break;
    }
    if (!fill()) return End::Input;
    const char c = m_buffer[m_position++];
    if (c == m_options.separator) return End::Separator;
    if (c == '\n' || c == '\r') {
        if (c == '\r' && fill() && m_buffer[m_position] == '\n') ++m_position;
        ++m_line;
        return End::Line;
    }
    fail("unexpected character after closing quote", m_line, index);
}

} // namespace Zel::Text
