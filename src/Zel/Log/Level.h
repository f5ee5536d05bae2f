#pragma once

#include <Zel/Export.h>

#include <cstdint>
#include <string_view>

namespace Zel::Log {

// The numbers are part of the library's interface (they travel between modules and into stored
// settings) and are not in order of severity; compare levels with levelGreater, never with `<`.
enum class Level : std::int32_t {
    Info = 0,
    Warning = 1,
    Error = 2,
    Notice = 3,
    Debug = 4,
    Trace = 5,
    Critical = 6,
};

// How the data text of a record is to be read. Sinks use it to decide how to show the data: JSON
// data, for instance, has its secrets masked before it reaches a file.
enum class DataType : std::int32_t {
    Text = 0,
    Json = 1,
    Xml = 2,
};

// True when `a` is strictly more severe than `b`. Severity from lowest to highest: Trace, Debug,
// Notice, Info, Warning, Error, Critical; Notice ranks below Info on purpose. A level outside the
// enumeration throws std::out_of_range.
ZEL_API bool levelGreater(Level a, Level b);

// The severity rank used by levelGreater (Trace 0 ... Critical 6); std::out_of_range as above.
ZEL_API int levelRank(Level level);

// The level's name: "Info", "Warning", "Error", "Notice", "Debug", "Trace", "Critical";
// std::out_of_range for a level outside the enumeration.
ZEL_API std::string_view levelName(Level level);

// The level whose name matches `name` without regard to ASCII case. Any other text throws
// GenericException "Unknown log level: <name>".
ZEL_API Level parseLevel(std::string_view name);

// "Text", "Json", "Xml"; "Unknown" for any other number a caller may have cast.
ZEL_API std::string_view dataTypeName(DataType type) noexcept;

} // namespace Zel::Log
