#include <Zel/Config/ConfigException.h>
#include <Zel/Config/Detail/TextValue.h>
#include <Zel/Config/IniFileSource.h>
#include <Zel/Text/Ini.h>

namespace Zel::Config {

namespace {

// The map at the dotted `section` below `tree`, made on the way.
Variant& sectionMap(Variant& tree, const std::string& section) {
    Variant* level = &tree;
    std::size_t start = 0;
    for (;;) {
        const std::size_t dot = section.find('.', start);
        const std::string key =
            section.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
        Variant* next = level->find(key);
        if (!next || !next->isMap()) {
            level->setAt(key, Variant::makeMap()); // returns the map it was called on, not the entry
            next = level->find(key);
        }
        level = next;
        if (dot == std::string::npos) return *level;
        start = dot + 1;
    }
}

} // namespace

IniFileSource::IniFileSource(std::filesystem::path path) : m_path(std::move(path)) {}

IniFileSource::~IniFileSource() = default;

std::string IniFileSource::name() const {
    return m_path.string();
}

Variant IniFileSource::read() const {
    const std::string text = Detail::readSourceFile(m_path, name());
    Variant ini;
    try {
        ini = Text::parseIni(text);
    } catch (const GenericException& error) {
        throw ConfigException("Config: malformed INI | error=" + std::string(error.what()) +
                              " | source=" + name());
    }
    Variant tree = Variant::makeMap();
    for (const auto& entry : ini) {
        if (!entry.value().isMap()) {
            tree.setAt(entry.key(), Detail::valueOfText(entry.value()));
            continue;
        }
        Variant& section = sectionMap(tree, entry.key());
        for (const auto& key : entry.value())
            section.setAt(key.key(), Detail::valueOfText(key.value()));
    }
    return tree;
}

} // namespace Zel::Config
