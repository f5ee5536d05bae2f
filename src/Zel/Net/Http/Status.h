#pragma once

#include <Zel/Export.h>

#include <string>

namespace Zel::Net::Http {

// The reason phrases of the status codes, the texts kept exactly as the table has them (its
// irregular spellings included). Built when the library is loaded; read-only afterwards, so any
// thread may look up at any time.
class ZEL_API Status {
public:
    // The text of `code`, or the empty string for a code the table lacks.
    static const std::string& text(int code);

    Status() = delete;
};

} // namespace Zel::Net::Http
