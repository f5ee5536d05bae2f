#pragma once

#include <Zel/GenericException.h>

namespace Zel {

// Zel::Factory has no creator registered for the requested reference.
class ZEL_API NoFactoryException : public GenericException {
public:
    using GenericException::GenericException;
    ~NoFactoryException() override;
};

} // namespace Zel
