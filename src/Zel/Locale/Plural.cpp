#include <Zel/Locale/Plural.h>
#include <array>
#include <string>

namespace Zel::Locale {

namespace {

std::string baseLanguage(std::string_view tag) {
    std::string language;
    for (const char c : tag) {
        if (c == '-' || c == '_') break;
        language += static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    }
    return language;
}

bool isAnyOf(const std::string& language, std::initializer_list<std::string_view> names) {
    for (const auto name : names) {
        if (language == name) return true;
    }
    return false;
}

} // namespace

PluralCategory pluralCategory(std::string_view language, std::int64_t count) {
    // The magnitude as unsigned, so that the most negative count is no special case.
    const std::uint64_t n =
        count < 0 ? 0 - static_cast<std::uint64_t>(count) : static_cast<std::uint64_t>(count);
    const std::uint64_t mod10 = n % 10;
    const std::uint64_t mod100 = n % 100;
    const std::string base = baseLanguage(language);
    if (isAnyOf(base, {"ja", "zh", "ko", "vi", "th", "id", "ms"})) return PluralCategory::Other;
    if (isAnyOf(base, {"fr", "pt"})) {
        if (n <= 1) return PluralCategory::One;
        if (n % 1000000 == 0) return PluralCategory::Many;
        return PluralCategory::Other;
    }
    if (base == "pl") {
        if (n == 1) return PluralCategory::One;
        if (mod10 >= 2 && mod10 <= 4 && !(mod100 >= 12 && mod100 <= 14)) return PluralCategory::Few;
        return PluralCategory::Many;
    }
    if (isAnyOf(base, {"ru", "uk", "be"})) {
        if (mod10 == 1 && mod100 != 11) return PluralCategory::One;
        if (mod10 >= 2 && mod10 <= 4 && !(mod100 >= 12 && mod100 <= 14)) return PluralCategory::Few;
        return PluralCategory::Many;
    }
    if (isAnyOf(base, {"cs", "sk"})) {
        if (n == 1) return PluralCategory::One;
        if (n >= 2 && n <= 4) return PluralCategory::Few;
        return PluralCategory::Other;
    }
    return n == 1 ? PluralCategory::One : PluralCategory::Other;
}

namespace {
constexpr std::array<std::string_view, 6> categoryNames = {"zero", "one", "two", "few", "many", "other"};
}

std::string_view toString(PluralCategory category) {
    return categoryNames[static_cast<std::size_t>(category)];
}

std::optional<PluralCategory> pluralCategoryFromString(std::string_view name) {
    for (std::size_t i = 0; i < categoryNames.size(); ++i) {
        if (categoryNames[i] == name) return static_cast<PluralCategory>(i);
    }
    return std::nullopt;
}

} // namespace Zel::Locale
