#pragma once

#include <Zel/Config/ISource.h>
#include <filesystem>

namespace Zel::Config {

// An INI file: keys before any section at the top of the tree, one map per section. A section
// named with dots ("[database.pool]") is nested ("database" -> "pool"), so an INI file can say what
// a JSON file says. Values are read as JSON when they are valid JSON (port = 8080 is a number) and
// as text otherwise.
class ZEL_API IniFileSource : public ISource {
public:
    explicit IniFileSource(std::filesystem::path path);
    ~IniFileSource() override;

    std::string name() const override;
    // ConfigException "Config: cannot read the file" or "Config: malformed INI" (with the reader's
    // text and line), each with " | source=<path>".
    Variant read() const override;

private:
    std::filesystem::path m_path;
};

} // namespace Zel::Config
