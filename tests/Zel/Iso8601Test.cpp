#include <Zel/ArgumentException.h>
#include <Zel/Iso8601.h>
#include <gtest/gtest.h>
#include <limits>

namespace {

using namespace std::chrono;

TEST(Iso8601, ParsesAndFormatsDateTimes) {
    struct Row {
        const char* text;
        const char* canonical; // format() of the instant (UTC), or of the wall clock when no offset
    };
    const Row rows[] = {
        {"2024-03-05T07:08:09Z", "2024-03-05T07:08:09Z"},
        {"2024-03-05t07:08:09z", "2024-03-05T07:08:09Z"},
        {"2024-03-05 07:08:09+01:00", "2024-03-05T06:08:09Z"},
        {"2024-03-05T07:08:09-0530", "2024-03-05T12:38:09Z"},
        {"2024-03-05T07:08:09+01", "2024-03-05T06:08:09Z"},
        {"2024-03-05T00:30:00+01:00", "2024-03-04T23:30:00Z"},
        {"20240305T070809Z", "2024-03-05T07:08:09Z"},
        {"20240305T0708Z", "2024-03-05T07:08:00Z"},
        {"2024-03-05T07:08:09.5Z", "2024-03-05T07:08:09.5Z"},
        {"2024-03-05T07:08:09,123456Z", "2024-03-05T07:08:09.123456Z"},
        {"2024-03-05T07:08:09.1234567891234Z", "2024-03-05T07:08:09.123456Z"},
        {"2024-03-05T07:08.5Z", "2024-03-05T07:08:30Z"},
        {"2024-03-05T07.25Z", "2024-03-05T07:15:00Z"},
        {"2024-02-29T23:59:59Z", "2024-02-29T23:59:59Z"},
        {"2024-03-05T07:08", "2024-03-05T07:08:00"},
        {"2024-03-05", "2024-03-05T00:00:00"},
        {"20240305", "2024-03-05T00:00:00"},
        {"+012024-03-05T00:00:00Z", "+012024-03-05T00:00:00Z"},
        {"-000044-03-15T12:00:00Z", "-000044-03-15T12:00:00Z"},
        {"0000-01-01T00:00:00Z", "0000-01-01T00:00:00Z"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        const auto parsed = Zel::Iso8601::parse(row.text);
        if (parsed.offset) {
            const auto instant = Zel::Iso8601::parseInstant(row.text);
            EXPECT_EQ(Zel::Iso8601::format(instant), row.canonical);
            EXPECT_EQ(Zel::Iso8601::parseInstant(Zel::Iso8601::format(instant)), instant);
        } else {
            EXPECT_EQ(Zel::Iso8601::format(parsed.local, std::nullopt), row.canonical);
        }
    }
}

TEST(Iso8601, RejectsMalformedTextWithThePosition) {
    struct Row {
        const char* text;
        int position;
    };
    const Row rows[] = {
        {"", 0},
        {"2024", 4},
        {"2024-3-05", 6},
        {"2024-13-05", 5},
        {"2024-00-05", 5},
        {"2023-02-29", 8},
        {"2024-04-31", 8},
        {"2024-03-05T", 11},
        {"2024-03-05T24:00:00Z", 11},
        {"2024-03-05T07:60:00Z", 14},
        {"2024-03-05T07:08:60Z", 17},
        {"2024-03-05T07:08:09.Z", 20},
        {"2024-03-05T07:08:09+1", 21},
        {"2024-03-05T07:08:09+24:00", 20},
        {"2024-03-05T07:08:09Zjunk", 20},
        {"2024-03-05X07:08:09", 10},
        {"2024-03-05T07:08:09 ", 19},
        {"12024-03-05", 5},
        {"+2024-03-05", 5},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        try {
            Zel::Iso8601::parse(row.text);
            ADD_FAILURE();
        } catch (const Zel::ArgumentException& error) {
            EXPECT_EQ(error.message(), std::string("Invalid ISO 8601 date-time | text=") + row.text +
                                           " | position=" + std::to_string(row.position));
        }
    }
    try {
        Zel::Iso8601::parseInstant("2024-03-05T07:08:09");
        ADD_FAILURE();
    } catch (const Zel::ArgumentException& error) {
        EXPECT_EQ(error.message(), "ISO 8601 date-time has no offset | text=2024-03-05T07:08:09");
    }
}

TEST(Iso8601, ZonesAndFractionDigits) {
    const auto berlin = Zel::TimeZone::named("Europe/Berlin");
    const auto instant = Zel::Iso8601::parseInstant("2024-07-01T10:00:00.25Z");
    EXPECT_EQ(Zel::Iso8601::format(instant, berlin), "2024-07-01T12:00:00.25+02:00");
    EXPECT_EQ(Zel::Iso8601::format(instant, berlin, 0), "2024-07-01T12:00:00+02:00");
    EXPECT_EQ(Zel::Iso8601::format(instant, berlin, 3), "2024-07-01T12:00:00.250+02:00");
    EXPECT_EQ(Zel::Iso8601::format(instant, Zel::TimeZone::named("America/St_Johns"), 1),
              "2024-07-01T07:30:00.2-02:30");
    EXPECT_EQ(Zel::Iso8601::format(instant - hours(24 * 365)), "2023-07-02T10:00:00.25Z");
    // Text without an offset is wall-clock time in the zone given; the gap is resolved as asked.
    EXPECT_EQ(Zel::Iso8601::parseInstant("2024-03-31T02:30:00.5", berlin),
              Zel::Iso8601::parseInstant("2024-03-31T01:30:00.5Z"));
    EXPECT_EQ(Zel::Iso8601::parseInstant("2024-03-31T02:30", berlin, Zel::LocalTimeChoice::Earlier),
              Zel::Iso8601::parseInstant("2024-03-31T00:30Z"));
    EXPECT_THROW(Zel::Iso8601::parseInstant("2024-03-31T02:30", berlin, Zel::LocalTimeChoice::Throw),
                 Zel::ArgumentException);

    EXPECT_EQ(Zel::Iso8601::formatDate(Zel::Date(9, 9, 1)), "0009-09-01");
    EXPECT_EQ(Zel::Iso8601::parseDate("2024-03-05"), Zel::Date(2024, 3, 5));
    EXPECT_THROW(Zel::Iso8601::parseDate("2024-03-05T10:00"), Zel::ArgumentException);
}

TEST(Iso8601, Durations) {
    struct Row {
        const char* text;
        nanoseconds value;
        const char* canonical;
    };
    const Row rows[] = {
        {"PT0S", nanoseconds(0), "PT0S"},
        {"P0D", nanoseconds(0), "PT0S"},
        {"P1D", days(1), "P1D"},
        {"P2W", days(14), "P14D"},
        {"PT36H", hours(36), "P1DT12H"},
        {"P1DT2H3M4S", days(1) + hours(2) + minutes(3) + seconds(4), "P1DT2H3M4S"},
        {"PT1H0.5S", hours(1) + milliseconds(500), "PT1H0.5S"},
        {"PT0,000000001S", nanoseconds(1), "PT0.000000001S"},
        {"-PT30M", -minutes(30), "-PT30M"},
        {"+PT90S", seconds(90), "PT1M30S"},
        {"P1W2DT3M", days(9) + minutes(3), "P9DT3M"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(Zel::Iso8601::parseDuration(row.text), row.value);
        EXPECT_EQ(Zel::Iso8601::formatDuration(row.value), row.canonical);
        EXPECT_EQ(Zel::Iso8601::parseDuration(row.canonical), row.value);
    }
    const nanoseconds extremes[] = {nanoseconds::max(), nanoseconds::min() + nanoseconds(1)};
    for (const auto value : extremes)
        EXPECT_EQ(Zel::Iso8601::parseDuration(Zel::Iso8601::formatDuration(value)), value);
    EXPECT_EQ(Zel::Iso8601::formatDuration(nanoseconds::min()), "-P106751DT23H47M16.854775808S");

    struct Bad {
        const char* text;
        int position;
    };
    const Bad bad[] = {
        {"", 0},
        {"P", 1},
        {"PT", 2},
        {"1D", 0},
        {"P1", 2},
        {"P1H", 2},
        {"PT1D", 3},
        {"P1DT", 4},
        {"PT1S2M", 5},
        {"P1D1D", 4},
        {"PT1.5M", 5},
        {"PT1.5S3", 6},
        {"P-1D", 1},
        {"PT1H1H", 5},
        {"P1DT1H ", 6},
        {"P106752D", 1},
        {"PT99999999999999999999S", 2},
    };
    for (const auto& row : bad) {
        SCOPED_TRACE(row.text);
        try {
            Zel::Iso8601::parseDuration(row.text);
            ADD_FAILURE();
        } catch (const Zel::ArgumentException& error) {
            EXPECT_EQ(error.message(), std::string("Invalid ISO 8601 duration | text=") + row.text +
                                           " | position=" + std::to_string(row.position));
        }
    }
    for (const char* calendar : {"P1Y", "P1M", "P1Y2M3D"}) {
        SCOPED_TRACE(calendar);
        try {
            Zel::Iso8601::parseDuration(calendar);
            ADD_FAILURE();
        } catch (const Zel::ArgumentException& error) {
            EXPECT_EQ(error.message(),
                      std::string("ISO 8601 duration with years or months has no fixed length | text=") +
                          calendar);
        }
    }
}

} // namespace
