#pragma once

#include <Zel/Export.h>
#include <cstdint>
#include <string>
#include <string_view>

namespace Zel::StringUtils {

// Base-10 integer with the rules of std::stoi (leading white space and a sign accepted, parsing
// stops at the first non-digit), but with the library's own failure texts on every platform:
// std::invalid_argument "invalid stoi argument" and std::out_of_range "stoi argument out of range".
// `consumed`, when given, receives the number of bytes read.
ZEL_API int stoi(std::string_view text, std::size_t* consumed = nullptr, int base = 10);

// Unsigned 64-bit integer with the rules of std::stoull (a leading '-' negates modulo 2^64),
// failing with "invalid stoull argument" / "stoull argument out of range".
ZEL_API unsigned long long stoull(std::string_view text, std::size_t* consumed = nullptr, int base = 10);

// ASCII upper case: bytes a..z become A..Z, every other byte stays.
ZEL_API std::string toUpper(std::string_view text);

// Whether the texts are equal once ASCII letters are folded to one case; other bytes compare as
// they are.
ZEL_API bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept;

// Without the spaces and tabs at either end (the blanks of header fields, INI lines and connection
// strings; line ends are the caller's).
ZEL_API std::string_view trimBlanks(std::string_view text) noexcept;

// The value of a hexadecimal digit (0-9, a-f, A-F), -1 for any other byte.
ZEL_API int hexDigitValue(char c) noexcept;

} // namespace Zel::StringUtils
