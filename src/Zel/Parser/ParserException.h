#pragma once

#include <Zel/GenericException.h>

namespace Zel::Parser {

// Base of the byte-level parser errors raised by the wire-format readers.
class ZEL_API ParserException : public GenericException {
public:
    using GenericException::GenericException;
    ~ParserException() override;
};

} // namespace Zel::Parser
