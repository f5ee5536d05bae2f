#include <Zel/Config/ConfigException.h>
#include <Zel/Config/JsonFileSource.h>
#include <Zel/Json/Json.h>
#include <fstream>
#include <sstream>

namespace Zel::Config {

JsonFileSource::JsonFileSource(std::filesystem::path path) : m_path(std::move(path)) {}
JsonFileSource::~JsonFileSource() = default;

std::string JsonFileSource::name() const {
    return m_path.string();
}

Variant JsonFileSource::read() const {
    std::ifstream file(m_path, std::ios::binary);
    if (!file) throw ConfigException("Config: cannot read the file | source=" + name());
    std::ostringstream text;
    text << file.rdbuf();
    Variant tree;
    try {
        tree = Json::parse(text.str());
    } catch (const GenericException& error) {
        throw ConfigException("Config: malformed JSON | error=" + std::string(error.what()) +
                              " | source=" + name());
    }
    if (!tree.isMap()) throw ConfigException("Config: the top level must be an object | source=" + name());
    return tree;
}

} // namespace Zel::Config
