#pragma once

#include <Zel/Export.h>
#include <cstdint>
#include <optional>
#include <string_view>

// Cardinal plural categories after the CLDR rules, for whole numbers.
//
//     Zel::Locale::pluralCategory("pl", 22); // PluralCategory::Few ("22 notatki")
namespace Zel::Locale {

enum class PluralCategory { Zero, One, Two, Few, Many, Other };

// The category of `count` (its magnitude; the sign does not matter) in the language of the tag
// ("pl", "de-AT", "pt_BR": only the language part counts). Rules: en, de, nl, sv, da, nb, it, es,
// el, fi, et, hu, tr: one for 1, else other; fr, pt: one for 0 and 1, many for non-zero millions,
// else other; pl: one, few (2-4, 22-24, ... but not 12-14), many; ru, uk, be: one (1, 21, 31, ...
// but not 11), few, many; cs, sk: one, few (2-4), other; ja, zh, ko, vi, th, id: other only.
// Languages not listed get the English rule.
ZEL_API PluralCategory pluralCategory(std::string_view language, std::int64_t count);

// "zero", "one", "two", "few", "many", "other".
ZEL_API std::string_view toString(PluralCategory category);
ZEL_API std::optional<PluralCategory> pluralCategoryFromString(std::string_view name);

} // namespace Zel::Locale
