#include <Zel/ArgumentException.h>
#include <Zel/Json/Json.h>
#include <Zel/Locale/Vocabulary.h>
#include <Zel/Variant.h>
#include <Zel/VariantIterator.h>
#include <fstream>
#include <iterator>

namespace Zel::Locale {

namespace {

[[noreturn]] void invalidEntry(const std::string& language, const std::string& key) {
    throw ArgumentException("Invalid vocabulary entry | language=" + language + " | key=" + key);
}

bool isPluralObject(const Variant& value) {
    if (value.empty()) return false;
    for (const auto& entry : value) {
        if (!pluralCategoryFromString(entry.key())) return false;
    }
    return true;
}

void addEntries(Vocabulary& vocabulary, const std::string& prefix, const Variant& object) {
    for (const auto& entry : object) {
        const std::string key = prefix.empty() ? entry.key() : prefix + "." + entry.key();
        const Variant& value = entry.value();
        if (value.isString()) {
            vocabulary.set(key, static_cast<std::string>(value));
        } else if (value.isMap() && isPluralObject(value)) {
            std::map<PluralCategory, std::string> forms;
            for (const auto& form : value) {
                if (!form.value().isString()) invalidEntry(vocabulary.language(), key + "." + form.key());
                forms[*pluralCategoryFromString(form.key())] = static_cast<std::string>(form.value());
            }
            if (!forms.count(PluralCategory::Other)) invalidEntry(vocabulary.language(), key);
            vocabulary.setPlural(key, std::move(forms));
        } else if (value.isMap() && !value.empty()) {
            addEntries(vocabulary, key, value);
        } else {
            invalidEntry(vocabulary.language(), key);
        }
    }
}

} // namespace

Vocabulary::Vocabulary(std::string language) : m_language(std::move(language)) {}

Vocabulary Vocabulary::fromJson(std::string language, std::string_view json) {
    const Variant root = Json::parse(json);
    Vocabulary vocabulary(std::move(language));
    if (!root.isMap()) invalidEntry(vocabulary.language(), "");
    addEntries(vocabulary, "", root);
    return vocabulary;
}

Vocabulary Vocabulary::load(std::string language, const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file.is_open()) throw ArgumentException("Cannot read vocabulary | path=" + path);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // A UTF-8 byte-order mark is not JSON but editors write it.
    if (text.starts_with("\xEF\xBB\xBF")) text.erase(0, 3);
    return fromJson(std::move(language), text);
}

const Vocabulary::Entry* Vocabulary::find(std::string_view key) const {
    const auto found = m_entries.find(std::string(key));
    return found == m_entries.end() ? nullptr : &found->second;
}

Vocabulary& Vocabulary::set(std::string key, std::string text) {
    m_entries[std::move(key)] = Entry{std::move(text), {}};
    return *this;
}

Vocabulary& Vocabulary::setPlural(std::string key, std::map<PluralCategory, std::string> forms) {
    Entry entry;
    if (const auto other = forms.find(PluralCategory::Other); other != forms.end())
        entry.text = other->second;
    entry.plurals = std::move(forms);
    m_entries[std::move(key)] = std::move(entry);
    return *this;
}

} // namespace Zel::Locale
