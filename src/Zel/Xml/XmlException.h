#pragma once

#include <Zel/Parser/ParserException.h>
#include <cstdint>
#include <string>

namespace Zel::Xml {

// A document that is not well-formed, or one the parser refuses to read (an external entity, an
// entity expansion or nesting beyond the limits of ParseOptions). The message reads
// "XML: <what> | line=<n> | column=<n>" followed by any details; line and column count from 1,
// the column in characters.
class ZEL_API XmlException : public Parser::ParserException {
public:
    XmlException(const std::string& what, std::int64_t line, std::int64_t column,
                 const std::string& details = {});
    ~XmlException() override;

    std::int64_t line() const noexcept { return m_line; }
    std::int64_t column() const noexcept { return m_column; }

private:
    std::int64_t m_line;
    std::int64_t m_column;
};

} // namespace Zel::Xml
