#pragma once

#include <Zel/GenericException.h>

namespace Zel::Net::Http {

// The error of the HTTP layer. The reader's messages are status lines ("406 Not Acceptable",
// "411 Length Required") that a server can send back as they are.
class ZEL_API HttpException : public GenericException {
public:
    using GenericException::GenericException;
    ~HttpException() override;
};

} // namespace Zel::Net::Http
