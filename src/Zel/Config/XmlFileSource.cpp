#include <Zel/Config/ConfigException.h>
#include <Zel/Config/Detail/TextValue.h>
#include <Zel/Config/XmlFileSource.h>
#include <Zel/StringUtils.h>
#include <Zel/Xml/Document.h>
#include <Zel/Xml/Node.h>

namespace Zel::Config {

namespace {

// Adds `value` under `key`; a key seen before among the siblings turns into a list.
void addEntry(Variant& map, const std::string& key, Variant value) {
    Variant* existing = map.find(key);
    if (!existing) {
        map.setAt(key, std::move(value));
        return;
    }
    if (!existing->isVector()) {
        Variant list = Variant::makeVector();
        list.push_back(*existing);
        *existing = std::move(list);
    }
    existing->push_back(std::move(value));
}

Variant elementValue(const Xml::Node& element, const std::string& source) {
    bool hasElements = false;
    for (const Xml::Node child : element.children())
        hasElements = hasElements || child.isElement();
    const bool hasAttributes = !element.firstAttribute().isNull();
    const std::string text = element.text();
    if (!hasElements && !hasAttributes) return Detail::valueOfText(text);
    if (hasElements && text.find_first_not_of(" \t\r\n") != std::string::npos) {
        throw ConfigException("Config: mixed text and elements | element=" + std::string(element.name()) +
                              " | source=" + source);
    }
    Variant map = Variant::makeMap();
    for (Xml::Attribute attribute = element.firstAttribute(); !attribute.isNull();
         attribute = attribute.next())
        addEntry(map, std::string(attribute.name()), Detail::valueOfText(std::string(attribute.value())));
    for (const Xml::Node child : element.children()) {
        if (child.isElement()) addEntry(map, std::string(child.name()), elementValue(child, source));
    }
    return map;
}

} // namespace

XmlFileSource::XmlFileSource(std::filesystem::path path) : m_path(std::move(path)) {}

XmlFileSource::~XmlFileSource() = default;

std::string XmlFileSource::name() const {
    return m_path.string();
}

Variant XmlFileSource::read() const {
    const std::string text = Detail::readSourceFile(m_path, name());
    Xml::Document document;
    try {
        document = Xml::Document::parse(text);
    } catch (const GenericException& error) {
        throw ConfigException("Config: malformed XML | error=" + std::string(error.what()) +
                              " | source=" + name());
    }
    Variant tree = elementValue(document.root(), name());
    // A root with text only (or nothing) holds no settings.
    return tree.isMap() ? tree : Variant::makeMap();
}

} // namespace Zel::Config
