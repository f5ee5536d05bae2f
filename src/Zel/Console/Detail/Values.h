#pragma once

#include <Zel/Console/Option.h>
#include <string>
#include <string_view>

namespace Zel::Console::Detail {

// Checks `text` against the type and writes the stored form (booleans become "true"/"false").
bool normalizeValue(ValueType type, std::string_view text, std::string& out);
// "integer", "number", "boolean", "text".
const char* typeName(ValueType type) noexcept;
// Optimal string alignment distance: like Levenshtein, with a swap of neighbours costing one.
std::size_t editDistance(std::string_view a, std::string_view b);

} // namespace Zel::Console::Detail
