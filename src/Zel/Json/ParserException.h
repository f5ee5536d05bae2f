#pragma once

#include <Zel/GenericException.h>

namespace Zel::Json {

// Malformed JSON: "Unexpected end", "Invalid integer format", "Invalid float format",
// "Float out of range". Invalid characters are reported as a plain GenericException.
class ZEL_API ParserException : public GenericException {
public:
    using GenericException::GenericException;
    ~ParserException() override;
};

} // namespace Zel::Json
