#include "TestSupport.h"

#include <Zel/ArgumentException.h>
#include <Zel/Log/LevelFilter.h>
#include <Zel/Log/LogString.h>
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

namespace Zel::Log {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;

const Level allLevels[] = {Level::Info,  Level::Warning, Level::Error,   Level::Notice,
                           Level::Debug, Level::Trace,   Level::Critical};

std::vector<std::string> passedThrough(Level minimum) {
    auto inner = std::make_shared<LogString>();
    LevelFilter filter(inner, minimum);
    for (Level level : allLevels)
        filter.log(level, std::string(levelName(level)), "", DataType::Text, "f", 1);
    return inner->messages();
}

TEST(LevelFilter, PassesTheMinimumAndWhatIsMoreSevereAndSaysSoInLevelEnabled) {
    struct Row {
        Level minimum;
        std::vector<std::string> passed; // in the order logged: Info, Warning, Error, Notice, ...
    };
    const Row rows[] = {
        {Level::Warning, {"Warning", "Error", "Critical"}},
        {Level::Notice, {"Info", "Warning", "Error", "Notice", "Critical"}},
        {Level::Info, {"Info", "Warning", "Error", "Critical"}},
        {Level::Critical, {"Critical"}},
        {Level::Trace, {"Info", "Warning", "Error", "Notice", "Debug", "Trace", "Critical"}},
        {Level::Debug, {"Info", "Warning", "Error", "Notice", "Debug", "Critical"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(levelName(row.minimum));
        EXPECT_EQ(passedThrough(row.minimum), row.passed);
        // levelEnabled must agree with log() for every level, so that the macros skip exactly what
        // log() would drop.
        LevelFilter filter(std::make_shared<LogString>(), row.minimum);
        for (Level level : allLevels) {
            const bool passed = std::ranges::count(row.passed, std::string(levelName(level))) == 1;
            EXPECT_EQ(filter.levelEnabled(level), passed) << levelName(level);
        }
        EXPECT_THROW(filter.levelEnabled(static_cast<Level>(8)), std::out_of_range);
    }
}

TEST(LevelFilter, MinimumCanChangeWhileInUse) {
    auto inner = std::make_shared<LogString>();
    LevelFilter filter(inner, Level::Error);
    filter.info("dropped");
    filter.setMinimalLevel(Level::Info);
    filter.info("kept");
    filter.notice("dropped too");
    EXPECT_THAT(inner->messages(), ElementsAre("kept"));
}

TEST(LevelFilter, ForwardsEveryFieldUnchanged) {
    auto inner = std::make_shared<LogString>();
    LevelFilter filter(inner, Level::Trace);
    filter.log(Level::Error, "Task failed | name=x", "{\"a\":1}", DataType::Json, "Zel/Tasks/Manager.cpp",
               77);
    const auto entries = inner->entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].level, Level::Error);
    EXPECT_EQ(entries[0].message, "Task failed | name=x");
    EXPECT_EQ(entries[0].data, "{\"a\":1}");
    EXPECT_EQ(entries[0].dataType, DataType::Json);
    EXPECT_EQ(entries[0].file, "Zel/Tasks/Manager.cpp");
    EXPECT_EQ(entries[0].line, 77);
}

TEST(LevelFilter, HelpersForwardTheirLevelAndTheCallersPosition) {
    auto inner = std::make_shared<LogString>();
    LevelFilter filter(inner, Level::Trace);
    filter.trace("t");
    filter.debug("d");
    filter.info("i");
    filter.notice("n");
    filter.warning("w", "data", DataType::Xml);
    filter.error("e");
    const int line = __LINE__ + 1;
    filter.critical("c");
    const auto entries = inner->entries();
    ASSERT_EQ(entries.size(), 7u);
    const Level expected[] = {Level::Trace,   Level::Debug, Level::Info,    Level::Notice,
                              Level::Warning, Level::Error, Level::Critical};
    for (std::size_t i = 0; i < entries.size(); ++i) {
        SCOPED_TRACE(entries[i].message);
        EXPECT_EQ(entries[i].level, expected[i]);
        EXPECT_THAT(entries[i].file, EndsWith("LevelFilterTest.cpp"));
    }
    EXPECT_EQ(entries[4].data, "data");
    EXPECT_EQ(entries[4].dataType, DataType::Xml);
    EXPECT_EQ(entries[6].line, line);
}

TEST(LevelFilter, FiltersCanBeStacked) {
    auto inner = std::make_shared<LogString>();
    auto quiet = std::make_shared<LevelFilter>(inner, Level::Warning);
    LevelFilter verbose(quiet, Level::Trace);
    verbose.info("stopped by the inner filter");
    verbose.error("passes both");
    EXPECT_THAT(inner->messages(), ElementsAre("passes both"));
}

TEST(LevelFilter, RejectsMissingInnerLog) {
    EXPECT_EQ(Testing::messageOf<ArgumentException>([] { LevelFilter filter(nullptr, Level::Info); }),
              "Log level filter: inner log missing");
}

} // namespace
} // namespace Zel::Log
