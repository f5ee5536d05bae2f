#pragma once

#include <Zel/Export.h>
#include <Zel/Locale/Plural.h>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>

namespace Zel::Locale {

// The translated strings of one language, by key.
//
// Read from a JSON object: a key maps to a string, to an object of plural forms (keys among
// "zero", "one", "two", "few", "many", "other"; "other" is required), or to an object of further
// keys, which are joined with '.':
//     {"greeting": "Hallo {name}", "notes": {"count": {"one": "{count} Notiz", "other": "{count} Notizen"}}}
// gives "greeting" and the plural entry "notes.count". Anything else throws ArgumentException
// "Invalid vocabulary entry | language=%s | key=%s"; text that is no JSON object throws the JSON
// parser's exception, and a file that cannot be read "Cannot read vocabulary | path=%s".
class ZEL_API Vocabulary {
public:
    struct Entry {
        std::string text;                              // the plain string, or the "other" form
        std::map<PluralCategory, std::string> plurals; // empty for plain strings
    };

    Vocabulary() = default;
    explicit Vocabulary(std::string language);

    static Vocabulary fromJson(std::string language, std::string_view json);
    static Vocabulary load(std::string language, const std::string& path);

    const std::string& language() const noexcept { return m_language; }
    // Null when the key is missing.
    const Entry* find(std::string_view key) const;
    std::size_t size() const noexcept { return m_entries.size(); }

    Vocabulary& set(std::string key, std::string text);
    Vocabulary& setPlural(std::string key, std::map<PluralCategory, std::string> forms);

private:
    std::string m_language;
    std::unordered_map<std::string, Entry> m_entries;
};

} // namespace Zel::Locale
