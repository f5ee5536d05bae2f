#pragma once

#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <Zel/Variant.h>
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

} // namespace Zel::Config::Detail
