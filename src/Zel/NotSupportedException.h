#pragma once

#include <Zel/GenericException.h>

namespace Zel {

// The operation exists but this object or platform does not provide it.
class ZEL_API NotSupportedException : public GenericException {
public:
    using GenericException::GenericException;
    ~NotSupportedException() override;
};

} // namespace Zel
