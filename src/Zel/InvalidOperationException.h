#pragma once

#include <Zel/GenericException.h>

#include <string_view>

namespace Zel {

// Thrown when an object is used in a state that does not allow the call. Throw it through
// ZEL_THROW_INVALID_OPERATION() so that function, file and line are filled in consistently.
class ZEL_API InvalidOperationException : public GenericException {
public:
    // Builds "Invalid operation | func=... | file=... | line=..."; `sourceFile` may be a raw
    // __FILE__, it is reduced to the path below src/ without extension.
    InvalidOperationException(std::string_view function, std::string_view sourceFile, int line);
    ~InvalidOperationException() override;

protected:
    // For derived exceptions that word their own message.
    struct PreformattedTag {};
    InvalidOperationException(PreformattedTag, std::string message);
};

namespace Detail {
// "/any/where/src/Zel/Orm/SessionFactory.cpp" -> "Zel/Orm/SessionFactory".
ZEL_API std::string_view librarySourcePath(std::string_view file) noexcept;
} // namespace Detail

} // namespace Zel

#define ZEL_THROW_INVALID_OPERATION() throw ::Zel::InvalidOperationException(__func__, __FILE__, __LINE__)
