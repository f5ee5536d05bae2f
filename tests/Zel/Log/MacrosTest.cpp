#include <Zel/Log/LevelFilter.h>
#include <Zel/Log/LogNull.h>
#include <Zel/Log/LogString.h>
#include <Zel/Log/Macros.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>

namespace Zel::Log {
namespace {

using ::testing::ElementsAre;

// Counts how often the message was built.
struct Counter {
    int calls = 0;
    std::string message(const std::string& text) {
        ++calls;
        return text;
    }
};

TEST(Macros, FilteredLevelEvaluatesNoArgument) {
    auto log = std::make_shared<LogString>(Level::Warning);
    Counter message;
    Counter data;
    ZEL_LOG_DEBUG(log, message.message("debug"), data.message("data"), DataType::Json);
    ZEL_LOG_INFO(log, message.message("info"));
    ZEL_LOG_NOTICE(log, message.message("notice"));
    ZEL_LOG_TRACE(log, message.message("trace"));
    EXPECT_EQ(message.calls, 0);
    EXPECT_EQ(data.calls, 0);
    EXPECT_EQ(log->size(), 0u);

    ZEL_LOG_WARNING(log, message.message("warning"));
    ZEL_LOG_ERROR(log, message.message("error"), data.message("data"));
    ZEL_LOG_CRITICAL(log, message.message("critical"));
    EXPECT_EQ(message.calls, 3);
    EXPECT_EQ(data.calls, 1);
    EXPECT_THAT(log->messages(), ElementsAre("warning", "error", "critical"));
}

TEST(Macros, NullSinkAndFilterAlsoSkipTheWork) {
    Counter message;
    auto null = std::make_shared<LogNull>();
    ZEL_LOG_CRITICAL(null, message.message("gone"));
    LevelFilter filter(std::make_shared<LogString>(), Level::Error);
    ZEL_LOG_WARNING(filter, message.message("gone"));
    EXPECT_EQ(message.calls, 0);
}

TEST(Macros, CaptureFileLineDataAndType) {
    LogString log;
    const int line = __LINE__ + 1;
    ZEL_LOG_INFO(log, "Reply sent", R"({"id":1})", DataType::Json);
    const auto entries = log.entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].level, Level::Info);
    EXPECT_EQ(entries[0].line, line);
    EXPECT_EQ(entries[0].file, __FILE__);
    EXPECT_EQ(entries[0].data, R"({"id":1})");
    EXPECT_EQ(entries[0].dataType, DataType::Json);
}

TEST(Macros, AcceptEveryWayOfHoldingALog) {
    auto shared = std::make_shared<LogString>();
    std::shared_ptr<ILog> asInterface = shared;
    auto unique = std::make_unique<LogString>();
    LogString* raw = shared.get();
    ILog* none = nullptr;

    ZEL_LOG_INFO(shared, "shared");
    ZEL_LOG_INFO(asInterface, "interface");
    ZEL_LOG_INFO(raw, "raw");
    ZEL_LOG_INFO(*raw, "reference");
    ZEL_LOG_INFO(none, "nowhere");
    ZEL_LOG_INFO(unique, "unique");
    ZEL_LOG(shared, Level::Error, "explicit level");
    EXPECT_THAT(shared->messages(), ElementsAre("shared", "interface", "raw", "reference", "explicit level"));
    EXPECT_THAT(unique->messages(), ElementsAre("unique"));
}

TEST(Macros, ExpandToOneStatement) {
    LogString log;
    bool enabled = false;
    if (enabled)
        ZEL_LOG_INFO(log, "not taken");
    else
        ZEL_LOG_INFO(log, "taken");
    EXPECT_THAT(log.messages(), ElementsAre("taken"));
}

TEST(Macros, LevelExpressionIsEvaluatedOnce) {
    LogString log;
    int evaluations = 0;
    ZEL_LOG(log, (++evaluations, Level::Info), "m");
    EXPECT_EQ(evaluations, 1);
    EXPECT_EQ(log.size(), 1u);
}

} // namespace
} // namespace Zel::Log
