#pragma once

#include <Zel/Export.h>

#include <string>
#include <string_view>

namespace Zel::Log {

// Masks secrets in JSON text meant for logs. The result equals that of the ECMAScript regular
// expression
//     (communityRead|communityWrite|pwd|password|pin|pinCard|refreshToken)(\\"|")\s*:\s*\2.*?\2
// replaced by "$1$2:$2****$2": the key and its quote style (a plain quote, or a backslash-escaped
// quote inside a JSON string) stay and the value becomes four asterisks. The key has no left
// boundary, so "mypassword" is masked as well. Text is treated as bytes; `.` stops at CR and LF and
// `\s` is the ASCII white space of the "C" locale. Malformed or truncated text is never rejected:
// what does not match is copied unchanged.
//
// A hand-written matcher replaces the regular expression engine: logging masks every JSON record,
// and a backtracking engine is both slow and recursive in the length of the value.
ZEL_API std::string hidePrivateStringInJson(std::string_view text);

// The same, appended to `out` (no allocation when `out` has room).
ZEL_API void hidePrivateStringInJson(std::string_view text, std::string& out);

} // namespace Zel::Log
