#pragma once

#include <Zel/Export.h>
#include <Zel/Locale/Vocabulary.h>
#include <Zel/Variant.h>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Zel::Locale {

// Looks translations up along a fallback chain and fills their placeholders.
//
//     Zel::Locale::Translator tr("en");
//     tr.loadDirectory("share/lang");                     // en.json, de.json, de-AT.json, pl.json ...
//     tr.plural("de-AT", "notes.count", 3);               // "3 Notizen"
//
// The chain for "de-AT" is de-AT, de, then the default language; tags are compared without regard
// to case and with '_' read as '-'. A key found nowhere comes back as the key itself, so a missing
// translation shows up on screen instead of vanishing.
//
// Placeholders: "{name}" is replaced by the string form of the parameter `name` (params is a map
// Variant); "{{" and "}}" stand for single braces; a placeholder without a parameter stays as written.
// Plural lookups pick the form by the rules of the language whose vocabulary has the key, fall back
// to "other", and offer the count as the parameter "count" unless params has one.
//
// Load everything first; after that any number of threads may translate at once.
class ZEL_API Translator {
public:
    explicit Translator(std::string defaultLanguage = "en");

    // Adds or replaces the vocabulary of its language.
    Translator& add(Vocabulary vocabulary);
    // Every "<tag>.json" in the directory; returns how many were loaded.
    std::size_t loadDirectory(const std::string& path);

    std::vector<std::string> fallbackChain(std::string_view language) const;

    std::string translate(std::string_view language, std::string_view key,
                          const Variant& params = Variant()) const;
    std::string plural(std::string_view language, std::string_view key, std::int64_t count,
                       const Variant& params = Variant()) const;

    const std::string& defaultLanguage() const noexcept { return m_defaultLanguage; }

    // Replaces the placeholders of `text` as described above.
    static std::string fill(std::string_view text, const Variant& params);

private:
    std::string m_defaultLanguage;
    std::unordered_map<std::string, Vocabulary> m_vocabularies; // by normalised tag
};

} // namespace Zel::Locale
