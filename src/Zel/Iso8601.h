#pragma once

#include <Zel/Date.h>
#include <Zel/Export.h>
#include <Zel/TimeZone.h>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

// ISO 8601 text for dates, date-times and durations.
//
//     auto instant = Zel::Iso8601::parseInstant("2024-03-31T02:30:00.25+02:00");
//     Zel::Iso8601::format(instant, Zel::TimeZone::named("Asia/Kolkata"), 3); //
//     "2024-03-31T06:00:00.250+05:30"
//
// Accepted date-times: a calendar date "YYYY-MM-DD" (or basic "YYYYMMDD", or an expanded year
// "+YYYYYY-MM-DD"), optionally followed by 'T', 't' or a space and a time "hh[:mm[:ss]]" (or basic
// "hh[mm[ss]]") with an optional fraction of the last field after '.' or ',' (cut to microseconds), then
// optionally "Z", "z" or an offset "+hh[:mm]" / "-hh[mm]". Hours 0..23, seconds 0..59 (no leap seconds, no
// 24:00). Anything else throws ArgumentException "Invalid ISO 8601 date-time | text=%s | position=%d" with
// the zero-based offset of the first character that does not fit.
namespace Zel::Iso8601 {

// Microseconds: fine enough for timestamps and wide enough for every year ISO 8601 text can name
// (nanoseconds would end in 2262).
using SysTime = std::chrono::sys_time<std::chrono::microseconds>;
using LocalTime = std::chrono::local_time<std::chrono::microseconds>;

// A parsed date-time: the wall-clock reading and, when the text had one, its offset from UTC.
struct DateTimeText {
    LocalTime local;
    std::optional<std::chrono::seconds> offset;
    bool hasTime = false;
};

ZEL_API DateTimeText parse(std::string_view text);
// The instant a text names; texts without an offset throw ArgumentException
// "ISO 8601 date-time has no offset | text=%s".
ZEL_API SysTime parseInstant(std::string_view text);
// Texts without an offset are read as wall-clock time in `zone`.
ZEL_API SysTime parseInstant(std::string_view text, const TimeZone& zone,
                             LocalTimeChoice choice = LocalTimeChoice::Compatible);

// fractionDigits: 0..6 digits exactly; -1 as many as needed (none for whole seconds).
// "2024-03-05T07:08:09Z"; years outside 0..9999 as "+YYYYYY" / "-YYYYYY".
ZEL_API std::string format(SysTime instant, int fractionDigits = -1);
// With the zone's offset at that instant: "2024-03-05T08:08:09+01:00".
ZEL_API std::string format(SysTime instant, const TimeZone& zone, int fractionDigits = -1);
// A wall-clock reading, with an offset when given.
ZEL_API std::string format(LocalTime local, std::optional<std::chrono::seconds> offset,
                           int fractionDigits = -1);

ZEL_API std::string formatDate(Date date);
// A date without a time part (else the date-time error above).
ZEL_API Date parseDate(std::string_view text);

// Durations "PnW", "PnDTnHnMnS" with an optional leading '-' or '+' and a fraction of seconds
// ("PT0.5S"; ',' works as '.'); at least one component, and 'T' only before a time component.
// Years and months have no fixed length and throw ArgumentException
// "ISO 8601 duration with years or months has no fixed length | text=%s"; other faults and overflow
// of the 64-bit nanosecond count throw "Invalid ISO 8601 duration | text=%s | position=%d".
// A day counts as 24 hours.
ZEL_API std::chrono::nanoseconds parseDuration(std::string_view text);
// Days, hours, minutes and seconds with the fraction trimmed: "P1DT2H0.5S", "-PT30M"; zero is "PT0S".
ZEL_API std::string formatDuration(std::chrono::nanoseconds duration);

} // namespace Zel::Iso8601
