#include <Zel/Config/ConfigException.h>
#include <Zel/Config/Detail/TextValue.h>
#include <Zel/Config/JsonFileSource.h>
#include <Zel/Json/Json.h>

namespace Zel::Config {

JsonFileSource::JsonFileSource(std::filesystem::path path) : m_path(std::move(path)) {}
JsonFileSource::~JsonFileSource() = default;

std::string JsonFileSource::name() const {
    return m_path.string();
}

Variant JsonFileSource::read() const {
    const std::string text = Detail::readSourceFile(m_path, name());
    Variant tree;
    try {
        tree = Json::parse(text);
    } catch (const GenericException& error) {
        throw ConfigException("Config: malformed JSON | error=" + std::string(error.what()) +
                              " | source=" + name());
    }
    if (!tree.isMap()) throw ConfigException("Config: the top level must be an object | source=" + name());
    return tree;
}

} // namespace Zel::Config
