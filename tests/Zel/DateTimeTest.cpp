#include <Zel/DateTime.h>

#include <Zel/ArgumentException.h>
#include <Zel/LongBinary.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

namespace {

TEST(Date, PacksYearMonthDayIntoOneWord) {
    const Zel::Date date(2024, 3, 5);
    EXPECT_EQ(date.word(), 2024u << 16 | 3u << 8 | 5u);
    EXPECT_EQ(date.year(), 2024);
    EXPECT_EQ(date.month(), 3);
    EXPECT_EQ(date.day(), 5);
    EXPECT_TRUE(Zel::Date().isNull());
    EXPECT_LT(Zel::Date(2023, 12, 31), Zel::Date(2024, 1, 1));
}

TEST(Date, SetFromSql) {
    Zel::Date date;
    date.setFromSql("2024-03-05");
    EXPECT_EQ(date, Zel::Date(2024, 3, 5));
    date.setFromSql("0-1-1");
    EXPECT_EQ(date, Zel::Date(0, 1, 1));
    for (const char* outOfRange : {"2024-13-01", "2024-00-10", "2024-01-32", "70000-01-01", "-1-01-01"}) {
        date = Zel::Date(2000, 1, 1);
        date.setFromSql(outOfRange);
        EXPECT_TRUE(date.isNull()) << outOfRange;
    }
    try {
        date = Zel::Date(2000, 1, 1);
        date.setFromSql("2024/03/05");
        ADD_FAILURE();
    } catch (const Zel::ArgumentException& error) {
        EXPECT_STREQ(error.what(), "Invalid SQL date format: 2024/03/05");
        EXPECT_EQ(date, Zel::Date(2000, 1, 1));
    }
}

TEST(Time, MidnightIsNotNull) {
    EXPECT_TRUE(Zel::Time().isNull());
    EXPECT_EQ(Zel::Time().word(), 0xFFFFFFFFu);
    EXPECT_FALSE(Zel::Time(0, 0, 0).isNull());
    EXPECT_EQ(Zel::Time(7, 8, 9).word(), 7u << 16 | 8u << 8 | 9u);
}

TEST(DateTime, NullRule) {
    EXPECT_TRUE(Zel::DateTime().isNull());
    EXPECT_EQ(Zel::DateTime().dateWord(), 0x00640101u);
    EXPECT_TRUE(Zel::DateTime::fromWords(0, 0).isNull());
    EXPECT_TRUE(Zel::DateTime::fromWords(0x00640101u, 0).isNull());
    EXPECT_FALSE(Zel::DateTime::fromWords(0x00640102u, 0).isNull());
    EXPECT_FALSE(Zel::DateTime::fromWords(0x00640101u, 1).isNull());
    EXPECT_TRUE(Zel::DateTime().time().isNull());
    EXPECT_EQ(Zel::DateTime::fromWords(Zel::Date(2024, 1, 1).word(), 0).time(), Zel::Time(0, 0, 0));
}

TEST(DateTime, SetDateAndTimeCheckRanges) {
    struct Row {
        int a, b, c;
        bool date, time;
    };
    const Row rows[] = {
        {100, 1, 1, true, false},  {2038, 12, 31, true, false}, {99, 1, 1, false, false},
        {2039, 1, 1, false, false}, {2024, 0, 1, false, true},   {2024, 13, 1, false, false},
        {2024, 1, 0, false, true},  {2024, 1, 32, false, false},
        {23, 59, 59, false, true},  {24, 0, 0, false, true},     {0, 60, 0, false, false},
        {0, 0, 60, false, false},   {-1, 0, 0, false, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.a) + " " + std::to_string(row.b) + " " + std::to_string(row.c));
        Zel::DateTime value;
        EXPECT_EQ(value.setDate(row.a, row.b, row.c), row.date);
        if (!row.date) EXPECT_TRUE(value.isNull());
    }
    Zel::DateTime value;
    EXPECT_TRUE(value.setTime(23, 59, 59));
    EXPECT_FALSE(value.setTime(24, 0, 0));
    EXPECT_FALSE(value.setTime(0, 60, 0));
    EXPECT_FALSE(value.setTime(0, 0, 60));
    EXPECT_EQ(value.hour(), 23);
}

TEST(DateTime, SetFromSqlPacksWithoutRangeChecks) {
    Zel::DateTime value;
    value.setFromSql("2024-03-05 07:08:09");
    EXPECT_EQ(value, Zel::DateTime(Zel::Date(2024, 3, 5), Zel::Time(7, 8, 9)));
    value.setFromSql("2024-13-40 25:61:99");
    EXPECT_EQ(value.month(), 13);
    EXPECT_EQ(value.second(), 99);
    try {
        value.setFromSql("2024-03-05");
        ADD_FAILURE();
    } catch (const Zel::ArgumentException& error) {
        EXPECT_STREQ(error.what(), "Invalid SQL date-time format: 2024-03-05");
    }
}

TEST(DateTime, Format) {
    const Zel::DateTime value(Zel::Date(2024, 3, 5), Zel::Time(7, 8, 9));
    EXPECT_EQ(value.format("Y-M-D H:m:S"), "2024-03-05 07:08:09");
    EXPECT_EQ(value.format("\"D/M/y\" at H.m"), "\"05/03/24\" at 07.08");
    EXPECT_EQ(value.toString(), "2024-03-05 07:08:09");
    EXPECT_EQ(Zel::DateTime(Zel::Date(9, 9, 1), Zel::Time(0, 0, 0)).toString(), "9-09-01 00:00:00");
}

TEST(LongBinary, OwnsItsBufferAndCopiesDeeply) {
    Zel::LongBinary binary("abc", 3);
    Zel::LongBinary copy = binary;
    copy.data()[0] = 'X';
    EXPECT_EQ(binary.data()[0], 'a');
    binary.realloc(5);
    EXPECT_EQ(binary.size(), 5);
    EXPECT_EQ(std::memcmp(binary.data(), "abc\0\0", 5), 0);
    void* raw = binary.detach();
    EXPECT_EQ(binary.size(), 0);
    EXPECT_EQ(binary.data(), nullptr);
    binary.attach(raw, 5);
    EXPECT_EQ(binary.size(), 5);
    binary.alloc(2);
    EXPECT_EQ(binary, Zel::LongBinary("\0\0", 2));
    binary.free();
    EXPECT_TRUE(binary.empty());
}

} // namespace
