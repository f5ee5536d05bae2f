#include <Zel/Locale/Translator.h>
#include <algorithm>
#include <filesystem>

namespace Zel::Locale {

namespace {

// "de_at" -> "de-AT": language lower case, later subtags upper case when two letters (regions),
// as written otherwise.
std::string normalizeTag(std::string_view tag) {
    std::string out;
    std::size_t part = 0;
    std::size_t partStart = 0;
    for (std::size_t i = 0; i <= tag.size(); ++i) {
        if (i < tag.size() && tag[i] != '-' && tag[i] != '_') continue;
        std::string piece(tag.substr(partStart, i - partStart));
        for (auto& c : piece) {
            const bool upper = part > 0 && piece.size() == 2;
            if (upper && c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
            if (!upper && c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        }
        if (part > 0) out += '-';
        out += piece;
        ++part;
        partStart = i + 1;
    }
    return out;
}

} // namespace

Translator::Translator(std::string defaultLanguage) : m_defaultLanguage(normalizeTag(defaultLanguage)) {}

Translator& Translator::add(Vocabulary vocabulary) {
    const std::string tag = normalizeTag(vocabulary.language());
    m_vocabularies.insert_or_assign(tag, std::move(vocabulary));
    return *this;
}

std::size_t Translator::loadDirectory(const std::string& path) {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        if (entry.is_regular_file() && entry.path().extension() == ".json") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end()); // the same order on every system
    for (const auto& file : files)
        add(Vocabulary::load(file.stem().string(), file.string()));
    return files.size();
}

std::vector<std::string> Translator::fallbackChain(std::string_view language) const {
    std::vector<std::string> chain;
    std::string tag = normalizeTag(language);
    while (!tag.empty()) {
        chain.push_back(tag);
        const auto dash = tag.rfind('-');
        tag = dash == std::string::npos ? std::string() : tag.substr(0, dash);
    }
    if (std::find(chain.begin(), chain.end(), m_defaultLanguage) == chain.end())
        chain.push_back(m_defaultLanguage);
    return chain;
}

std::string Translator::translate(std::string_view language, std::string_view key,
                                  const Variant& params) const {
    for (const auto& tag : fallbackChain(language)) {
        const auto vocabulary = m_vocabularies.find(tag);
        if (vocabulary == m_vocabularies.end()) continue;
        if (const auto* entry = vocabulary->second.find(key)) return fill(entry->text, params);
    }
    return std::string(key);
}

std::string Translator::plural(std::string_view language, std::string_view key, std::int64_t count,
                               const Variant& params) const {
    Variant values = params.isMap() ? params : Variant::makeMap();
    if (!values.contains("count")) values.setAt("count", Variant(static_cast<std::int64_t>(count)));
    for (const auto& tag : fallbackChain(language)) {
        const auto vocabulary = m_vocabularies.find(tag);
        if (vocabulary == m_vocabularies.end()) continue;
        const auto* entry = vocabulary->second.find(key);
        if (!entry) continue;
        const auto form = entry->plurals.find(pluralCategory(tag, count));
        return fill(form == entry->plurals.end() ? entry->text : form->second, values);
    }
    return std::string(key);
}

std::string Translator::fill(std::string_view text, const Variant& params) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if ((c == '{' || c == '}') && i + 1 < text.size() && text[i + 1] == c) {
            out += c;
            ++i;
            continue;
        }
        if (c == '{' && params.isMap()) {
            const auto close = text.find('}', i + 1);
            if (close != std::string_view::npos) {
                const std::string name(text.substr(i + 1, close - i - 1));
                if (const Variant* value = params.find(name)) {
                    out += value->isMap() || value->isVector() ? value->toJson()
                                                               : static_cast<std::string>(*value);
                    i = close;
                    continue;
                }
            }
        }
        out += c;
    }
    return out;
}

} // namespace Zel::Locale
