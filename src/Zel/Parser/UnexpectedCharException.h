#pragma once

#include <Zel/Parser/ParserException.h>

#include <cstdint>

namespace Zel::Parser {

// A byte other than the one the grammar requires. `position` is the zero-based index of the
// offending byte among the bytes consumed by this parse.
class ZEL_API UnexpectedCharException : public ParserException {
public:
    UnexpectedCharException(unsigned char character, std::int64_t position);
    ~UnexpectedCharException() override;

    unsigned char character() const noexcept { return m_character; }
    std::int64_t position() const noexcept { return m_position; }

private:
    unsigned char m_character;
    std::int64_t m_position;
};

} // namespace Zel::Parser
