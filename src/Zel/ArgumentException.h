#pragma once

#include <Zel/GenericException.h>

namespace Zel {

// A caller passed a value the operation cannot accept (malformed text, out-of-range number).
class ZEL_API ArgumentException : public GenericException {
public:
    using GenericException::GenericException;
    ~ArgumentException() override;
};

} // namespace Zel
