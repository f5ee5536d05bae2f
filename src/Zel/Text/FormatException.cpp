#include <Zel/Text/FormatException.h>

namespace Zel::Text {

FormatException::FormatException(const std::string& message, std::int64_t line)
    : ParserException(message), m_line(line) {}

FormatException::~FormatException() = default;

} // namespace Zel::Text
