#include <Zel/ArgumentException.h>
#include <Zel/TimeZone.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono;

// "2024-03-31 03:00:00 +0200", as `date '+%F %T %z'` prints it.
std::string describe(const Zel::TimeZone& zone, sys_seconds instant) {
    const auto offset = zone.offsetAt(instant).count();
    const auto magnitude = offset < 0 ? -offset : offset;
    char suffix[16];
    std::snprintf(suffix, sizeof suffix, " %c%02lld%02lld", offset < 0 ? '-' : '+',
                  static_cast<long long>(magnitude / 3600), static_cast<long long>(magnitude / 60 % 60));
    return Zel::DateTime::fromLocalSeconds(zone.toLocal(instant)).toString() + suffix;
}

// Asks the system's `date` (GNU coreutils, reading the same zone database) about every instant.
std::vector<std::string> askDate(const std::string& zone, const std::vector<sys_seconds>& instants) {
    char path[] = "/tmp/zel-tz-XXXXXX";
    const int fd = ::mkstemp(path);
    EXPECT_GE(fd, 0);
    ::close(fd);
    {
        std::ofstream list(path);
        for (const auto instant : instants)
            list << '@' << instant.time_since_epoch().count() << '\n';
    }
    const std::string command = "TZ='" + zone + "' date -f " + path + " '+%F %T %z'";
    std::vector<std::string> lines;
    if (FILE* pipe = ::popen(command.c_str(), "r")) {
        char line[128];
        while (std::fgets(line, sizeof line, pipe))
            lines.emplace_back(line, std::strlen(line) - 1);
        ::pclose(pipe);
    }
    std::remove(path);
    return lines;
}

TEST(TimeZone, AgreesWithTheDateCommandAroundEveryTransition) {
    // Years from the table's past, present and the POSIX-rule future past its last entry.
    const int years[] = {1975, 1996, 2011, 2024, 2025, 2037, 2046, 2100};
    for (const char* name : {"Europe/Berlin", "America/New_York", "Australia/Sydney", "Asia/Kolkata",
                             "Australia/Lord_Howe", "Pacific/Chatham", "America/Sao_Paulo", "UTC"}) {
        SCOPED_TRACE(name);
        const auto zone = Zel::TimeZone::named(name);
        EXPECT_EQ(zone.name(), name);
        std::vector<sys_seconds> instants;
        int transitions = 0;
        for (const int year : years) {
            const sys_seconds start{sys_days{std::chrono::year(year) / January / 1}};
            for (sys_seconds t = start; t < start + days(366); t += hours(1)) {
                instants.push_back(t);
                if (zone.offsetAt(t) != zone.offsetAt(t + hours(1))) {
                    // Find the transition to the second and check both sides of it.
                    sys_seconds low = t;
                    sys_seconds high = t + hours(1);
                    while (high - low > seconds(1)) {
                        const sys_seconds middle = low + (high - low) / 2;
                        (zone.offsetAt(middle) == zone.offsetAt(low) ? low : high) = middle;
                    }
                    instants.insert(instants.end(), {low, high});
                    ++transitions;
                }
            }
        }
        const auto expected = askDate(name, instants);
        ASSERT_EQ(expected.size(), instants.size());
        int mismatches = 0;
        for (std::size_t i = 0; i < instants.size() && mismatches < 5; ++i) {
            const auto actual = describe(zone, instants[i]);
            if (actual != expected[i]) {
                ++mismatches;
                ADD_FAILURE() << "@" << instants[i].time_since_epoch().count() << ": " << actual
                              << " != " << expected[i];
            }
            // Every wall-clock reading leads back to its instant.
            const auto local = zone.toLocal(instants[i]);
            const auto resolution = zone.resolve(local);
            EXPECT_TRUE(resolution.earlier == instants[i] || resolution.later == instants[i]);
        }
        const std::set<std::string> noDst = {"Asia/Kolkata", "UTC"};
        if (noDst.count(name))
            EXPECT_EQ(transitions, 0);
        else
            EXPECT_GE(transitions, 4); // Sao Paulo: none since 2019
    }
}

sys_seconds utc(int year, unsigned month, unsigned day, int hour, int minute) {
    return sys_days{std::chrono::year(year) / month / day} + hours(hour) + minutes(minute);
}
local_seconds wall(int year, unsigned month, unsigned day, int hour, int minute) {
    return local_days{std::chrono::year(year) / month / day} + hours(hour) + minutes(minute);
}

TEST(TimeZone, ResolvesGapsAndOverlapsAsDocumented) {
    using Kind = Zel::TimeZone::Resolution::Kind;
    using Choice = Zel::LocalTimeChoice;
    struct Row {
        const char* zone;
        local_seconds local;
        Kind kind;
        sys_seconds earlier;
        sys_seconds later;
    };
    const Row rows[] = {
        // Spring forward 02:00 -> 03:00 and fall back 03:00 -> 02:00.
        {"Europe/Berlin", wall(2024, 3, 31, 2, 30), Kind::Gap, utc(2024, 3, 31, 0, 30),
         utc(2024, 3, 31, 1, 30)},
        {"Europe/Berlin", wall(2024, 10, 27, 2, 30), Kind::Overlap, utc(2024, 10, 27, 0, 30),
         utc(2024, 10, 27, 1, 30)},
        {"Europe/Berlin", wall(2024, 10, 27, 3, 0), Kind::Unique, utc(2024, 10, 27, 2, 0),
         utc(2024, 10, 27, 2, 0)},
        {"Europe/Berlin", wall(2024, 3, 31, 3, 0), Kind::Unique, utc(2024, 3, 31, 1, 0),
         utc(2024, 3, 31, 1, 0)},
        // Past the table's end: the POSIX rule decides (last Sunday of March 2099 is the 29th).
        {"Europe/Berlin", wall(2099, 3, 29, 2, 15), Kind::Gap, utc(2099, 3, 29, 0, 15),
         utc(2099, 3, 29, 1, 15)},
        {"America/New_York", wall(2024, 3, 10, 2, 30), Kind::Gap, utc(2024, 3, 10, 6, 30),
         utc(2024, 3, 10, 7, 30)},
        {"America/New_York", wall(2024, 11, 3, 1, 30), Kind::Overlap, utc(2024, 11, 3, 5, 30),
         utc(2024, 11, 3, 6, 30)},
        // Southern hemisphere: summer time from October to April.
        {"Australia/Sydney", wall(2024, 10, 6, 2, 30), Kind::Gap, utc(2024, 10, 5, 15, 30),
         utc(2024, 10, 5, 16, 30)},
        {"Australia/Sydney", wall(2024, 4, 7, 2, 30), Kind::Overlap, utc(2024, 4, 6, 15, 30),
         utc(2024, 4, 6, 16, 30)},
        // A half-hour shift: +10:30 -> +11:00 at 02:00.
        {"Australia/Lord_Howe", wall(2024, 10, 6, 2, 15), Kind::Gap, utc(2024, 10, 5, 15, 15),
         utc(2024, 10, 5, 15, 45)},
        {"Australia/Lord_Howe", wall(2024, 4, 7, 1, 45), Kind::Overlap, utc(2024, 4, 6, 14, 45),
         utc(2024, 4, 6, 15, 15)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.zone) + " " + Zel::DateTime::fromLocalSeconds(row.local).toString());
        const auto zone = Zel::TimeZone::named(row.zone);
        const auto resolution = zone.resolve(row.local);
        EXPECT_EQ(resolution.kind, row.kind);
        EXPECT_EQ(resolution.earlier, row.earlier);
        EXPECT_EQ(resolution.later, row.later);
        EXPECT_EQ(zone.toUtc(row.local, Choice::Earlier), row.earlier);
        EXPECT_EQ(zone.toUtc(row.local, Choice::Later), row.later);
        EXPECT_EQ(zone.toUtc(row.local), row.kind == Kind::Gap ? row.later : row.earlier);
        const std::string time = Zel::DateTime::fromLocalSeconds(row.local).toString();
        try {
            EXPECT_EQ(zone.toUtc(row.local, Choice::Throw), row.earlier);
            EXPECT_EQ(row.kind, Kind::Unique);
        } catch (const Zel::ArgumentException& error) {
            EXPECT_EQ(error.message(), std::string(row.kind == Kind::Gap ? "Local time does not exist"
                                                                         : "Local time is ambiguous") +
                                           " | zone=" + row.zone + " | time=" + time);
        }
    }
}

TEST(TimeZone, DateTimeConversionsAndPeriods) {
    const auto berlin = Zel::TimeZone::named("Europe/Berlin");
    const Zel::DateTime noon(Zel::Date(2024, 7, 1), Zel::Time(10, 0, 0));
    EXPECT_EQ(berlin.toLocal(noon).toString(), "2024-07-01 12:00:00");
    EXPECT_EQ(berlin.toUtc(berlin.toLocal(noon)), noon);
    EXPECT_TRUE(berlin.toLocal(Zel::DateTime()).isNull());
    const auto summer = berlin.periodAt(noon.toSysSeconds());
    EXPECT_EQ(summer.offset, hours(2));
    EXPECT_TRUE(summer.isDst);
    EXPECT_EQ(summer.abbreviation, "CEST");
    EXPECT_EQ(berlin.periodAt(utc(2024, 1, 1, 0, 0)).abbreviation, "CET");
    EXPECT_EQ(Zel::TimeZone::named("Asia/Kolkata").periodAt(utc(2024, 1, 1, 0, 0)).offset, minutes(330));
    EXPECT_EQ(Zel::TimeZone::fixed(-minutes(150)).name(), "-02:30");
    EXPECT_EQ(
        Zel::TimeZone::fixed(-minutes(150)).toLocal(Zel::DateTime(Zel::Date(2024, 1, 1), Zel::Time(1, 0, 0))),
        Zel::DateTime(Zel::Date(2023, 12, 31), Zel::Time(22, 30, 0)));
    EXPECT_EQ(Zel::TimeZone().name(), "UTC");
}

TEST(TimeZone, PosixRulesMatchTheDatabase) {
    struct Row {
        const char* rule;
        const char* zone;
    };
    const Row rows[] = {
        {"CET-1CEST,M3.5.0,M10.5.0/3", "Europe/Berlin"},
        {"EST5EDT,M3.2.0,M11.1.0", "America/New_York"},
        {"EST5EDT", "America/New_York"},
        {"AEST-10AEDT,M10.1.0,M4.1.0/3", "Australia/Sydney"},
        {"<+1030>-10:30<+11>-11,M10.1.0,M4.1.0", "Australia/Lord_Howe"},
        {"IST-5:30", "Asia/Kolkata"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        const auto rule = Zel::TimeZone::posixRule(row.rule);
        const auto zone = Zel::TimeZone::named(row.zone);
        for (sys_seconds t = utc(2031, 1, 1, 0, 0); t < utc(2032, 1, 1, 0, 0); t += minutes(15)) {
            ASSERT_EQ(rule.offsetAt(t), zone.offsetAt(t)) << t.time_since_epoch().count();
        }
    }
    for (const char* bad : {"", "C", "CET", "CET-1CEST,M3.5.0", "CET-1CEST,M13.5.0,M10.5.0",
                            "CET-1CEST,J0,J10", "CET-1CEST,M3.5.0,M10.5.0/3x", "<CET-1"}) {
        SCOPED_TRACE(bad);
        try {
            Zel::TimeZone::posixRule(bad);
            ADD_FAILURE();
        } catch (const Zel::ArgumentException& error) {
            EXPECT_EQ(error.message(), std::string("Invalid POSIX time zone rule | rule=") + bad);
        }
    }
}

TEST(TimeZone, RejectsUnknownAndUnsafeNames) {
    for (const char* name :
         {"Mars/Olympus_Mons", "../../etc/passwd", "/etc/localtime", "", "Europe", "Europe/Berlin "}) {
        SCOPED_TRACE(name);
        try {
            Zel::TimeZone::named(name);
            ADD_FAILURE();
        } catch (const Zel::ArgumentException& error) {
            EXPECT_EQ(error.message(), std::string("Unknown time zone | zone=") + name);
        }
    }
}

} // namespace
