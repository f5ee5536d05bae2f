#include <Zel/VariantInvalidOperationException.h>

#include <Zel/Variant.h>

namespace Zel {

namespace {

constexpr std::size_t maxValueText = 1000;

// The JSON writer refuses dates, times, timestamps and binaries; the message still shows them.
std::string describe(const Variant& variant) {
    switch (variant.type()) {
    case Variant::Type::Date:
    case Variant::Type::Time:
    case Variant::Type::Timestamp: return static_cast<std::string>(variant);
    case Variant::Type::Binary: {
        // Appended piece by piece: "<" + std::string trips GCC 12's -Wrestrict (a false alarm).
        std::string text = "<";
        text += std::to_string(variant.binary().size());
        text += " bytes>";
        return text;
    }
    case Variant::Type::Reserved: return "";
    default: return variant.toJson();
    }
}

std::string formatMessage(std::string_view operation, const Variant& variant) {
    std::string value;
    try {
        value = describe(variant);
    } catch (const std::exception&) {
        value.clear(); // never let the report of one error become another error
    }
    if (value.size() > maxValueText) value.resize(maxValueText);
    std::string text = "Variant: Invalid operation | operation=";
    text.append(operation);
    text += " | type=";
    text += Variant::typeToString(variant.type());
    text += " | value=";
    text += value;
    return text;
}

} // namespace

VariantInvalidOperationException::VariantInvalidOperationException(std::string_view operation,
                                                                   const Variant& variant)
    : InvalidOperationException(PreformattedTag{}, formatMessage(operation, variant)) {}

VariantInvalidOperationException::~VariantInvalidOperationException() = default;

} // namespace Zel
