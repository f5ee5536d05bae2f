#pragma once

#include <Zel/Config/ISource.h>
#include <Zel/Export.h>
#include <Zel/Variant.h>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Zel::Config {

// A configuration tree built from layers, later layers winning: sources (JSON files, ...) merged
// map into map, then single values set by dotted path from the environment and the command line.
//
//     Configuration config;
//     config.addFile("/etc/zel/host.json")          // {"database": {"forcedWrites": false}}
//           .addEnvironment()                        // ZEL_DATABASE__FORCED_WRITES=true
//           .setArgument("threads=8");               // from "--set threads=8"
//     bool durable = config.getBool("database.forcedWrites", true);
//
// Values set as text (environment, command line) are read as JSON when they are valid JSON
// (8, true, [1,2], {"a":1}, "quoted") and as the string itself otherwise.
//
// Environment names: after the prefix, "__" separates levels and "_" separates words of a key in
// camel case, so ZEL_DATA_STORE__IDLE_TIMEOUT_SECONDS sets dataStore.idleTimeoutSeconds. A level
// that matches an existing key case-insensitively takes that key's spelling.
//
// Getters take a dotted path ("database.forcedWrites"). One without a default throws
// ConfigException when the value is missing; every getter throws when the value has the wrong type,
// and the message names the path, what was expected, what was found and where it came from.
//
// Thread safety: build on one thread; afterwards the const getters may run on any number of threads.
class ZEL_API Configuration {
public:
    Configuration();
    ~Configuration();
    Configuration(const Configuration&);
    Configuration& operator=(const Configuration&);
    Configuration(Configuration&&) noexcept;
    Configuration& operator=(Configuration&&) noexcept;

    Configuration& add(const ISource& source);
    // By the file's extension: ".ini" an IniFileSource, ".xml" an XmlFileSource, anything else JSON.
    Configuration& addFile(const std::filesystem::path& path);
    // Every variable of this process whose name begins with `prefix`.
    Configuration& addEnvironment(std::string_view prefix = "ZEL_");
    // The same from "NAME=value" entries.
    Configuration& addEnvironment(std::string_view prefix, const std::vector<std::string>& variables);
    // One value by dotted path; `origin` names it in error messages.
    Configuration& set(const std::string& path, const std::string& text, const std::string& origin);
    // "a.b=value", as given to a --set option.
    Configuration& setArgument(const std::string& assignment);

    bool has(const std::string& path) const;
    // Null when missing.
    Variant value(const std::string& path) const;
    const Variant& tree() const noexcept { return m_tree; }
    // Where the value at `path` (or the nearest map above it) came from; empty when nowhere.
    std::string origin(const std::string& path) const;

    std::string getString(const std::string& path) const;
    std::string getString(const std::string& path, const std::string& fallback) const;
    std::int64_t getInt(const std::string& path) const;
    std::int64_t getInt(const std::string& path, std::int64_t fallback) const;
    double getDouble(const std::string& path) const;
    double getDouble(const std::string& path, double fallback) const;
    bool getBool(const std::string& path) const;
    bool getBool(const std::string& path, bool fallback) const;
    // A list (JSON array); an empty list when missing.
    Variant getList(const std::string& path) const;
    // A map (JSON object); an empty map when missing.
    Variant getMap(const std::string& path) const;

    // ConfigException in the form of the getters' errors, for checks of the caller's own.
    [[noreturn]] void fail(const std::string& path, const std::string& sentence) const;

private:
    const Variant* find(const std::string& path) const;
    const Variant& require(const std::string& path, const char* expected) const;
    [[noreturn]] void wrongType(const std::string& path, const char* expected, const Variant& found) const;
    void merge(Variant& into, const Variant& from, const std::string& path, const std::string& origin);

    Variant m_tree;
    // Leaf path -> where it was set.
    std::map<std::string, std::string> m_origins;
};

} // namespace Zel::Config
