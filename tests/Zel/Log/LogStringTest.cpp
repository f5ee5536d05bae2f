#include <Zel/Log/LogString.h>
#include <Zel/Log/ThreadContext.h>
#include <gtest/gtest.h>

namespace Zel::Log {
namespace {

TEST(LogString, KeepsEveryFieldOfEachRecord) {
    LogString log;
    ThreadContext context(4, "nightly export");
    const auto before = std::chrono::system_clock::now();
    log.log(Level::Error, "Export failed | file=a.csv", R"({"rows":3})", DataType::Json, "Export.cpp", 12);
    const auto after = std::chrono::system_clock::now();
    const auto entries = log.entries();
    ASSERT_EQ(entries.size(), 1u);
    const LogString::Entry& entry = entries[0];
    EXPECT_EQ(entry.level, Level::Error);
    EXPECT_EQ(entry.message, "Export failed | file=a.csv");
    EXPECT_EQ(entry.data, R"({"rows":3})");
    EXPECT_EQ(entry.dataType, DataType::Json);
    EXPECT_EQ(entry.file, "Export.cpp");
    EXPECT_EQ(entry.line, 12);
    EXPECT_EQ(entry.subsystem, 4);
    EXPECT_EQ(entry.context, "nightly export");
    EXPECT_EQ(entry.threadId, ThreadContext::currentThreadId());
    EXPECT_GE(entry.time, before);
    EXPECT_LE(entry.time, after);
}

TEST(LogString, TextContainsAndClear) {
    LogString log;
    log.warning("Queue slow | name=mail");
    log.info("Queue ok", "depth=0");
    log.log(Level::Debug, "no file", "", DataType::Text, nullptr, 0);
    EXPECT_EQ(log.text(), "Warning: Queue slow | name=mail\nInfo: Queue ok | data=depth=0\nDebug: no file\n");
    EXPECT_EQ(log.size(), 3u);
    EXPECT_TRUE(log.contains("name=mail"));
    EXPECT_FALSE(log.contains("depth=0")); // data is not the message
    log.clear();
    EXPECT_EQ(log.size(), 0u);
    EXPECT_EQ(log.text(), "");
}

} // namespace
} // namespace Zel::Log
