#pragma once

#include <Zel/Date.h>
#include <Zel/DateTime.h>
#include <Zel/Variant.h>

#include <string>
#include <string_view>

// JSON text to and from Variant.
//
// The reader is deliberately lenient where that costs nothing: text after the first value is
// ignored, trailing commas in arrays and objects are accepted and strings are not checked for
// UTF-8. Objects become maps (a repeated key keeps its last value), integers int32 or int64, other
// numbers double. Nesting depth is limited only by memory.
//
// Errors: ParserException "Unexpected end", "Invalid integer format", "Invalid float format",
// "Float out of range"; GenericException "Invalid character #<byte> at <offset>". A failed parse
// returns nothing.
//
// Any number of threads may parse and write at once.
namespace Zel::Json {

ZEL_API Variant parse(std::string_view text);
ZEL_API Variant parse(const std::string& text);
// Picks one of the above for string literals, which convert to both equally well.
inline Variant parse(const char* text) {
    return parse(std::string_view(text));
}

// The quoted, escaped JSON form of a byte string. Bytes of 0x80 and above pass unchanged.
ZEL_API std::string _encodeString(std::string_view text);

// Resolves the escapes of a JSON string body (the text between the quotes).
ZEL_API std::string decodeJsonString(const std::string& text);

// "\"2024-03-05\"", or null for the null date.
ZEL_API std::string encode(Date date);
// "\"2024-03-05 07:08:09\"", or null for the null date-time.
ZEL_API std::string encode(DateTime dateTime);

ZEL_API extern const std::string _encodedNull;
ZEL_API extern const std::string _encodedTrue;
ZEL_API extern const std::string _encodedFalse;
ZEL_API extern const std::string _encodedEmptyString;

} // namespace Zel::Json
