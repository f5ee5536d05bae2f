#include "TestSupport.h"

#include <Zel/GenericException.h>
#include <Zel/Log/Level.h>
#include <Zel/Log/LogString.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zel::Log {
namespace {

TEST(Level, NumbersAndNamesAreFixed) {
    struct Row {
        Level level;
        int number;
        const char* name;
    };
    const Row rows[] = {
        {Level::Info, 0, "Info"},         {Level::Warning, 1, "Warning"}, {Level::Error, 2, "Error"},
        {Level::Notice, 3, "Notice"},     {Level::Debug, 4, "Debug"},     {Level::Trace, 5, "Trace"},
        {Level::Critical, 6, "Critical"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(static_cast<int>(row.level), row.number);
        EXPECT_EQ(levelName(row.level), row.name);
        EXPECT_EQ(parseLevel(row.name), row.level);
    }
    static_assert(sizeof(Level) == 4 && sizeof(DataType) == 4);
}

TEST(Level, SeverityOrderPutsNoticeBelowInfo) {
    // From least to most severe.
    const std::vector<Level> order = {Level::Trace,   Level::Debug, Level::Notice,  Level::Info,
                                      Level::Warning, Level::Error, Level::Critical};
    for (std::size_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(levelRank(order[i]), static_cast<int>(i));
        for (std::size_t j = 0; j < order.size(); ++j) {
            SCOPED_TRACE(std::string(levelName(order[i])) + " vs " + std::string(levelName(order[j])));
            EXPECT_EQ(levelGreater(order[i], order[j]), i > j);
        }
    }
}

TEST(Level, LevelOutsideTheEnumerationThrowsOutOfRange) {
    for (int number : {-1, 7, 100, INT32_MIN}) {
        SCOPED_TRACE(number);
        const auto bad = static_cast<Level>(number);
        EXPECT_THROW(levelGreater(bad, Level::Info), std::out_of_range);
        EXPECT_THROW(levelGreater(Level::Info, bad), std::out_of_range);
        EXPECT_THROW(levelName(bad), std::out_of_range);
        EXPECT_THROW(levelRank(bad), std::out_of_range);
    }
}

TEST(Level, ParseIgnoresCase) {
    struct Row {
        const char* text;
        Level expected;
    };
    const Row rows[] = {
        {"warning", Level::Warning}, {"WARNING", Level::Warning}, {"wArNiNg", Level::Warning},
        {"info", Level::Info},       {"NOTICE", Level::Notice},   {"critical", Level::Critical},
        {"TRACE", Level::Trace},     {"debug", Level::Debug},     {"eRROR", Level::Error},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(parseLevel(row.text), row.expected);
    }
}

TEST(Level, ParseRejectsAnyOtherTextWithItsName) {
    for (const std::string text : {"verbose", "", "Info ", " Info", "Infos", "Inf", "Warn", "1", "Ｉnfo"}) {
        EXPECT_EQ(Testing::messageOf<GenericException>([&] { parseLevel(text); }),
                  "Unknown log level: " + text);
    }
}

TEST(Level, DataTypeNames) {
    EXPECT_EQ(dataTypeName(DataType::Text), "Text");
    EXPECT_EQ(dataTypeName(DataType::Json), "Json");
    EXPECT_EQ(dataTypeName(DataType::Xml), "Xml");
    EXPECT_EQ(dataTypeName(static_cast<DataType>(42)), "Unknown");
}

TEST(Level, SinkRefusesAnInvalidLevelAndFiltersByTheSeverityOrder) {
    LogString log(Level::Warning);
    EXPECT_THROW(log.setMinimalLevel(static_cast<Level>(9)), std::out_of_range);
    EXPECT_EQ(log.minimalLevel(), Level::Warning);
    EXPECT_THROW(LogString(static_cast<Level>(-3)), std::out_of_range);
    log.setMinimalLevel(Level::Notice);
    EXPECT_TRUE(log.levelEnabled(Level::Notice));
    EXPECT_TRUE(log.levelEnabled(Level::Info));
    EXPECT_TRUE(log.levelEnabled(Level::Critical));
    EXPECT_FALSE(log.levelEnabled(Level::Debug));
    EXPECT_FALSE(log.levelEnabled(Level::Trace));
    EXPECT_THROW(log.levelEnabled(static_cast<Level>(7)), std::out_of_range);
}

} // namespace
} // namespace Zel::Log
