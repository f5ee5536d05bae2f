#pragma once

#include <Zel/Config/ConfigException.h>
#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <Zel/Variant.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace Zel::Config::Detail {

// A value that arrives as text (an INI value, XML text, an environment variable): its JSON reading
// when it is valid JSON (8, true, [1,2], "quoted"), else the text itself, so that "8" in any source
// is the number a getter expects.
inline Variant valueOfText(const std::string& text) {
    try {
        return Json::parse(text);
    } catch (const GenericException&) {
        return Variant(text);
    }
}

// The whole content of a source's file; ConfigException "Config: cannot read the file | source=..."
// when it cannot be opened.
inline std::string readSourceFile(const std::filesystem::path& path, const std::string& source) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw ConfigException("Config: cannot read the file | source=" + source);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

} // namespace Zel::Config::Detail
