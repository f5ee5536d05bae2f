#pragma once

#include <Zel/Parser/ParserException.h>
#include <cstdint>

namespace Zel::Text {

// A data file that breaks its format: a CSV quote left open, a repeated INI key, bytes that are
// not UTF-8. The message names the format and the line ("CSV: unterminated quoted field | line=4");
// line() gives the same number, counted from 1.
class ZEL_API FormatException : public Parser::ParserException {
public:
    FormatException(const std::string& message, std::int64_t line);
    ~FormatException() override;

    std::int64_t line() const noexcept { return m_line; }

private:
    std::int64_t m_line;
};

} // namespace Zel::Text
