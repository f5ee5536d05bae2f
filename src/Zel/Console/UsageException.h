#pragma once

#include <Zel/GenericException.h>

namespace Zel::Console {

// The command line does not fit what the program declared (unknown option, missing or malformed
// value, missing argument). Application turns it into exit code 2.
class ZEL_API UsageException : public GenericException {
public:
    using GenericException::GenericException;
    ~UsageException() override;
};

} // namespace Zel::Console
