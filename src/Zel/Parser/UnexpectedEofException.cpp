#include <Zel/Parser/UnexpectedEofException.h>

#include <cinttypes>
#include <cstdio>

namespace Zel::Parser {

namespace {

std::string formatMessage(std::int64_t size) {
    char text[64];
    std::snprintf(text, sizeof text, "Unexpected end of data | size=%" PRId64, size);
    return text;
}

} // namespace

UnexpectedEofException::UnexpectedEofException(std::int64_t size)
    : ParserException(formatMessage(size)), m_size(size) {}

UnexpectedEofException::~UnexpectedEofException() = default;

} // namespace Zel::Parser
