#include <Zel/Config/ConfigException.h>
#include <Zel/Config/Configuration.h>
#include <Zel/Config/IniFileSource.h>
#include <Zel/Config/JsonFileSource.h>
#include <Zel/Config/XmlFileSource.h>
#include <Zel/Json/Json.h>
#include <Zel/StringUtils.h>
#include <cctype>

extern char** environ;

namespace Zel::Config {

namespace {

std::vector<std::string> split(const std::string& text, std::string_view separator) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    for (std::size_t at; (at = text.find(separator, start)) != std::string::npos;
         start = at + separator.size())
        parts.push_back(text.substr(start, at - start));
    parts.push_back(text.substr(start));
    return parts;
}

std::string join(const std::string& path, const std::string& key) {
    return path.empty() ? key : path + "." + key;
}

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

// "IDLE_TIMEOUT_SECONDS" -> "idleTimeoutSeconds"
std::string camelCase(const std::string& words) {
    std::string key;
    bool upper = false;
    for (const char c : words) {
        if (c == '_') {
            upper = !key.empty();
            continue;
        }
        const auto byte = static_cast<unsigned char>(c);
        key.push_back(static_cast<char>(upper ? std::toupper(byte) : std::tolower(byte)));
        upper = false;
    }
    return key;
}

Variant valueOfText(const std::string& text) {
    try {
        return Json::parse(text);
    } catch (const GenericException&) {
        return Variant(text);
    }
}

std::string shown(const Variant& value) {
    std::string json = value.toJson();
    if (json.size() > 1000) json.resize(1000);
    return json;
}

} // namespace

Configuration::Configuration() : m_tree(Variant::makeMap()) {}
Configuration::~Configuration() = default;
Configuration::Configuration(const Configuration&) = default;
Configuration& Configuration::operator=(const Configuration&) = default;
Configuration::Configuration(Configuration&&) noexcept = default;
Configuration& Configuration::operator=(Configuration&&) noexcept = default;

void Configuration::merge(Variant& into, const Variant& from, const std::string& path,
                          const std::string& origin) {
    for (const auto& entry : from) {
        const std::string key = entry.key();
        const std::string childPath = join(path, key);
        const Variant* existing = into.find(key);
        if (entry.value().isMap() && existing != nullptr && existing->isMap()) {
            Variant child = *existing;
            merge(child, entry.value(), childPath, origin);
            into.setAt(key, std::move(child));
            continue;
        }
        // A value replacing a subtree replaces where its leaves came from too.
        std::erase_if(m_origins, [&](const auto& leaf) { return leaf.first.starts_with(childPath + "."); });
        if (entry.value().isMap()) {
            Variant child = Variant::makeMap();
            merge(child, entry.value(), childPath, origin);
            into.setAt(key, std::move(child));
        } else {
            into.setAt(key, entry.value());
        }
        m_origins[childPath] = origin;
    }
}

Configuration& Configuration::add(const ISource& source) {
    const Variant tree = source.read();
    if (!tree.isMap())
        throw ConfigException("Config: the top level must be an object | source=" + source.name());
    Variant merged = m_tree;
    auto origins = m_origins;
    try {
        merge(merged, tree, {}, source.name());
    } catch (...) {
        m_origins = std::move(origins);
        throw;
    }
    m_tree = std::move(merged);
    return *this;
}

Configuration& Configuration::addFile(const std::filesystem::path& path) {
    const std::string extension = path.extension().string();
    if (StringUtils::equalsIgnoringCase(extension, ".ini")) return add(IniFileSource(path));
    if (StringUtils::equalsIgnoringCase(extension, ".xml")) return add(XmlFileSource(path));
    return add(JsonFileSource(path));
}

Configuration& Configuration::addEnvironment(std::string_view prefix) {
    std::vector<std::string> variables;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry)
        variables.emplace_back(*entry);
    return addEnvironment(prefix, variables);
}

Configuration& Configuration::addEnvironment(std::string_view prefix,
                                             const std::vector<std::string>& variables) {
    for (const std::string& variable : variables) {
        const auto equals = variable.find('=');
        if (equals == std::string::npos || equals <= prefix.size() || !variable.starts_with(prefix)) continue;
        const std::string name = variable.substr(0, equals);
        // Each level takes the spelling of an existing key, else its camel-case form.
        std::string path;
        const Variant* node = &m_tree;
        for (const std::string& level : split(name.substr(prefix.size()), "__")) {
            std::string key = camelCase(level);
            if (node != nullptr && node->isMap()) {
                const Variant* match = nullptr;
                for (const auto& entry : *node)
                    if (equalsIgnoringCase(entry.key(), key)) {
                        key = entry.key();
                        match = &entry.value();
                        break;
                    }
                node = match;
            }
            path = join(path, key);
        }
        set(path, variable.substr(equals + 1), "environment " + name);
    }
    return *this;
}

Configuration& Configuration::set(const std::string& path, const std::string& text,
                                  const std::string& origin) {
    const std::vector<std::string> levels = split(path, ".");
    for (const std::string& level : levels)
        if (level.empty())
            throw ConfigException("Config: a path needs a name at every level | path=" + path +
                                  " | source=" + origin);
    Variant tree = Variant::makeMap();
    Variant leaf = valueOfText(text);
    // The value becomes a one-branch tree merged like a source, so that it fails the same way when
    // the path crosses a value that is not a map.
    for (std::size_t i = levels.size(); i-- > 0;) {
        Variant parent = Variant::makeMap();
        parent.setAt(levels[i], i + 1 == levels.size() ? leaf : tree);
        tree = std::move(parent);
    }
    std::string prefix;
    const Variant* node = &m_tree;
    for (std::size_t i = 0; i + 1 < levels.size(); ++i) {
        prefix = join(prefix, levels[i]);
        node = node->find(levels[i]);
        if (node == nullptr) break;
        if (!node->isMap())
            throw ConfigException("Config: the path crosses a value that is not an object | path=" + path +
                                  " | at=" + prefix + " | source=" + origin +
                                  " | setBy=" + this->origin(prefix));
    }
    merge(m_tree, tree, {}, origin);
    return *this;
}

Configuration& Configuration::setArgument(const std::string& assignment) {
    const auto equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0)
        throw ConfigException("Config: expected path=value | argument=" + assignment);
    return set(assignment.substr(0, equals), assignment.substr(equals + 1), "command line");
}

const Variant* Configuration::find(const std::string& path) const {
    const Variant* node = &m_tree;
    for (const std::string& level : split(path, ".")) {
        if (!node->isMap()) return nullptr;
        node = node->find(level);
        if (node == nullptr) return nullptr;
    }
    return node->isNull() ? nullptr : node;
}

bool Configuration::has(const std::string& path) const {
    return find(path) != nullptr;
}

Variant Configuration::value(const std::string& path) const {
    const Variant* found = find(path);
    return found == nullptr ? Variant() : *found;
}

std::string Configuration::origin(const std::string& path) const {
    for (std::string at = path;;) {
        if (const auto it = m_origins.find(at); it != m_origins.end()) return it->second;
        const auto dot = at.rfind('.');
        if (dot == std::string::npos) break;
        at.resize(dot);
    }
    // A map: name its first leaf's origin.
    const auto below = m_origins.lower_bound(path + ".");
    return below != m_origins.end() && below->first.starts_with(path + ".") ? below->second : std::string();
}

void Configuration::fail(const std::string& path, const std::string& sentence) const {
    std::string message = "Config: " + sentence + " | path=" + path;
    if (const std::string source = origin(path); !source.empty()) message += " | source=" + source;
    throw ConfigException(message);
}

void Configuration::wrongType(const std::string& path, const char* expected, const Variant& found) const {
    fail(path, std::string("expected ") + expected + " | found=" + shown(found));
}

const Variant& Configuration::require(const std::string& path, const char* expected) const {
    const Variant* found = find(path);
    if (found == nullptr) fail(path, std::string("missing value | expected=") + expected);
    return *found;
}

std::string Configuration::getString(const std::string& path) const {
    const Variant& found = require(path, "a string");
    if (!found.isString()) wrongType(path, "a string", found);
    return found;
}

std::string Configuration::getString(const std::string& path, const std::string& fallback) const {
    return has(path) ? getString(path) : fallback;
}

std::int64_t Configuration::getInt(const std::string& path) const {
    const Variant& found = require(path, "an integer");
    if (!found.isInteger()) wrongType(path, "an integer", found);
    return static_cast<std::int64_t>(found);
}

std::int64_t Configuration::getInt(const std::string& path, std::int64_t fallback) const {
    return has(path) ? getInt(path) : fallback;
}

double Configuration::getDouble(const std::string& path) const {
    const Variant& found = require(path, "a number");
    const auto type = found.type();
    if (!found.isInteger() && type != Variant::Type::Double && type != Variant::Type::Float)
        wrongType(path, "a number", found);
    return static_cast<double>(found);
}

double Configuration::getDouble(const std::string& path, double fallback) const {
    return has(path) ? getDouble(path) : fallback;
}

bool Configuration::getBool(const std::string& path) const {
    const Variant& found = require(path, "true or false");
    if (found.type() != Variant::Type::Bool) wrongType(path, "true or false", found);
    return static_cast<bool>(found);
}

bool Configuration::getBool(const std::string& path, bool fallback) const {
    return has(path) ? getBool(path) : fallback;
}

Variant Configuration::getList(const std::string& path) const {
    const Variant* found = find(path);
    if (found == nullptr) return Variant::makeVector();
    if (!found->isVector()) wrongType(path, "a list", *found);
    return *found;
}

Variant Configuration::getMap(const std::string& path) const {
    const Variant* found = find(path);
    if (found == nullptr) return Variant::makeMap();
    if (!found->isMap()) wrongType(path, "an object", *found);
    return *found;
}

} // namespace Zel::Config
