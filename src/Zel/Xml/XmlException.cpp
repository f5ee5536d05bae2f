#include <Zel/Xml/XmlException.h>

namespace Zel::Xml {

XmlException::XmlException(const std::string& what, std::int64_t line, std::int64_t column,
                           const std::string& details)
    : ParserException("XML: " + what + " | line=" + std::to_string(line) +
                      " | column=" + std::to_string(column) + details),
      m_line(line), m_column(column) {}

XmlException::~XmlException() = default;

} // namespace Zel::Xml
