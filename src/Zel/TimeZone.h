#pragma once

#include <Zel/DateTime.h>
#include <Zel/Export.h>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>

namespace Zel {

namespace Detail {
struct ZoneData;
}

// What toUtc() does with a wall-clock time that a zone skips (a gap: the clocks jump forward,
// 02:30 on the spring-forward day in Berlin never happens) or passes twice (an overlap: 02:30 on
// the fall-back day happens first in summer time, then an hour later in standard time).
enum class LocalTimeChoice {
    // Overlap: the earlier instant. Gap: the time read with the offset from before the gap, i.e.
    // moved forward by the gap's length (02:30 becomes 03:30 summer time). What most calendars do.
    Compatible,
    // The earlier of the two instants: overlap: the first occurrence; gap: the instant read with
    // the offset after the gap (02:30 becomes 01:30 standard time).
    Earlier,
    // The later of the two instants: overlap: the second occurrence; gap: as Compatible.
    Later,
    // ArgumentException "Local time does not exist | zone=%s | time=%s" for a gap,
    // "Local time is ambiguous | zone=%s | time=%s" for an overlap.
    Throw
};

// A time zone: the rules mapping instants (UTC) to wall-clock time and back.
//
// Named zones come from the system's zone database: the TZif files under $TZDIR or
// /usr/share/zoneinfo (versions 1 to 4), with the POSIX TZ rule at the file's end used for instants
// after its last listed transition. A zone is loaded once per process and then shared; TimeZone is
// a cheap, immutable, thread-safe value.
//
//     auto berlin = Zel::TimeZone::named("Europe/Berlin");
//     DateTime wall = berlin.toLocal(DateTime(Date(2024, 7, 1), Time(10, 0, 0)));  // 12:00:00
class ZEL_API TimeZone {
public:
    // The rules in force at one instant.
    struct Period {
        std::chrono::seconds offset; // local minus UTC
        bool isDst = false;
        std::string abbreviation; // "CEST"; numeric ("+0530") where the database has no letters
    };

    // A wall-clock time resolved against the zone: one instant, none (a gap: `earlier` and `later`
    // are the two readings described under LocalTimeChoice) or two (an overlap).
    struct Resolution {
        enum class Kind { Unique, Gap, Overlap };
        Kind kind = Kind::Unique;
        std::chrono::sys_seconds earlier;
        std::chrono::sys_seconds later;
    };

    // UTC.
    TimeZone();

    static TimeZone utc();
    // "Europe/Berlin", "America/New_York", "UTC". Unknown or malformed names throw
    // ArgumentException "Unknown time zone | zone=%s"; a damaged file "Invalid time zone data | zone=%s".
    static TimeZone named(std::string_view name);
    // From $TZ (a zone name, or a POSIX rule) or else /etc/localtime; UTC when neither works.
    static TimeZone local();
    // A POSIX TZ rule such as "CET-1CEST,M3.5.0,M10.5.0/3"; ArgumentException
    // "Invalid POSIX time zone rule | rule=%s" when it does not parse.
    static TimeZone posixRule(std::string_view rule);
    // A constant offset, named like "+05:30".
    static TimeZone fixed(std::chrono::seconds offset);

    const std::string& name() const noexcept;

    Period periodAt(std::chrono::sys_seconds instant) const;
    std::chrono::seconds offsetAt(std::chrono::sys_seconds instant) const;

    std::chrono::local_seconds toLocal(std::chrono::sys_seconds instant) const;
    std::chrono::sys_seconds toUtc(std::chrono::local_seconds local,
                                   LocalTimeChoice choice = LocalTimeChoice::Compatible) const;
    Resolution resolve(std::chrono::local_seconds local) const;

    // The same on DateTime values (UTC in, wall clock out and back). A null DateTime stays null.
    DateTime toLocal(const DateTime& utc) const;
    DateTime toUtc(const DateTime& local, LocalTimeChoice choice = LocalTimeChoice::Compatible) const;

private:
    explicit TimeZone(std::shared_ptr<const Detail::ZoneData> data) noexcept;

    std::shared_ptr<const Detail::ZoneData> m_data;
};

} // namespace Zel
