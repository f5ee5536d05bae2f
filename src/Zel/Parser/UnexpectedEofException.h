#pragma once

#include <Zel/Parser/ParserException.h>

#include <cstdint>

namespace Zel::Parser {

// The input ended where the grammar needs more bytes. `size` is the count consumed so far.
class ZEL_API UnexpectedEofException : public ParserException {
public:
    explicit UnexpectedEofException(std::int64_t size);
    ~UnexpectedEofException() override;

    std::int64_t size() const noexcept { return m_size; }

private:
    std::int64_t m_size;
};

} // namespace Zel::Parser
