#pragma once

#include <Zel/InvalidOperationException.h>

#include <string_view>

namespace Zel {

class Variant;

// A Variant was used as a type it does not hold: "Variant: Invalid operation | operation=%s |
// type=%s | value=%s", the value shown as JSON and cut to 1000 characters.
class ZEL_API VariantInvalidOperationException : public InvalidOperationException {
public:
    VariantInvalidOperationException(std::string_view operation, const Variant& variant);
    ~VariantInvalidOperationException() override;
};

} // namespace Zel
