#pragma once

#include <Zel/GenericException.h>

namespace Zel::IO {

// A stream could not do what was asked of it: a file that does not open, a write that takes
// nothing.
class ZEL_API IOException : public GenericException {
public:
    using GenericException::GenericException;
    ~IOException() override;
};

} // namespace Zel::IO
