#pragma once

#include <Zel/Export.h>
#include <Zel/Variant.h>
#include <string>
#include <string_view>

namespace Zel::IO {
class IStream;
}

// INI files to and from a Variant tree: a map whose entries are the keys given before any section
// (string values) and one map per section (its keys, string values).
//
//     ; comment            # comment too
//     top = value          keys before any section sit at the top of the tree
//     [database]
//     host = db.local      ; a comment after a value needs white space before it
//     name = "a \"quoted\" value\twith escapes"
//     path = 'single quotes: taken as written'
//
// Names and values are trimmed; keys and section names are case-sensitive and may not repeat
// (nor a section share its name with a top-level key). Double-quoted values know the escapes
// \\ \" \' \n \r \t \0 and \uXXXX; single-quoted ones none. All values are strings: converting
// them is the reader's business. The text is read with TextReader, so it is UTF-8 with an optional
// byte order mark and LF or CRLF line ends.
//
// Errors throw Text::FormatException with the line: "INI: duplicate key | line=7 | key=host |
// first=3", "INI: duplicate section", "INI: expected key = value", "INI: unterminated section
// name", "INI: unterminated quoted value", "INI: bad escape", "INI: text after quoted value",
// "INI: empty key", "INI: empty section name".
namespace Zel::Text {

ZEL_API Variant parseIni(std::string_view text);
ZEL_API Variant parseIni(IO::IStream& stream);

// The tree as INI text: top-level string keys first, then each map entry as a section. A value is
// quoted (with escapes) when it would not read back as it is. Values that are neither strings nor
// sections are written as their string conversion; nested maps deeper than a section throw
// ArgumentException.
ZEL_API std::string writeIni(const Variant& tree);
ZEL_API void writeIni(const Variant& tree, IO::IStream& stream);

} // namespace Zel::Text
