#pragma once

#include <Zel/Config/ISource.h>
#include <filesystem>

namespace Zel::Config {

// A JSON file whose top level is an object.
class ZEL_API JsonFileSource : public ISource {
public:
    explicit JsonFileSource(std::filesystem::path path);
    ~JsonFileSource() override;

    std::string name() const override;
    // ConfigException "Config: cannot read the file", "Config: malformed JSON" (with the parser's
    // text) or "Config: the top level must be an object", each with " | source=<path>".
    Variant read() const override;

private:
    std::filesystem::path m_path;
};

} // namespace Zel::Config
