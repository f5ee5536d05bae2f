#include <Zel/Parser/UnexpectedCharException.h>

#include <cinttypes>
#include <cstdio>

namespace Zel::Parser {

namespace {

std::string formatMessage(unsigned char character, std::int64_t position) {
    char text[96];
    std::snprintf(text, sizeof text, "Unexpected character | char=0x%x | position=%" PRId64, character, position);
    return text;
}

} // namespace

UnexpectedCharException::UnexpectedCharException(unsigned char character, std::int64_t position)
    : ParserException(formatMessage(character, position)), m_character(character), m_position(position) {}

UnexpectedCharException::~UnexpectedCharException() = default;

} // namespace Zel::Parser
