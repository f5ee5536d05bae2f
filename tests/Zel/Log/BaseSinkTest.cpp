#include <Zel/Log/BaseSink.h>

#include <Zel/Log/LogString.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zel::Log {
namespace {

using ::testing::ElementsAre;

// Keeps the standard lines it is handed; can be told to fail, or to log to another sink from
// inside its own write.
class LineSink : public BaseSink {
public:
    std::vector<std::string> lines;
    bool throwInWrite = false;
    bool throwInFormat = false;
    ILog* forwardTo = nullptr;

protected:
    void format(const Record& record, std::string& out) const override {
        if (throwInFormat) throw std::runtime_error("cannot format");
        BaseSink::format(record, out);
    }
    void write(const Record&, std::string_view text) override {
        if (forwardTo != nullptr) forwardTo->warning("nested record");
        if (throwInWrite) throw std::runtime_error("disk on fire");
        lines.emplace_back(text);
    }
};

TEST(BaseSink, StandardLineLayout) {
    LineSink sink;
    sink.log(Level::Critical, "Service stopped | name=orders", "exit 3", DataType::Text,
             "C:\\src\\Service.cpp", 9);
    sink.log(Level::Notice, "no data, no source", "", DataType::Text, nullptr, 0);
    ASSERT_EQ(sink.lines.size(), 2u);
    EXPECT_TRUE(std::regex_match(
        sink.lines[0],
        std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} Critical \d+ )"
                   R"(Service stopped \| name=orders \| data=exit 3 \| source=Service\.cpp:9\n)")))
        << sink.lines[0];
    EXPECT_TRUE(std::regex_match(sink.lines[1], std::regex(R"(.{23} Notice   \d+ no data, no source\n)")))
        << sink.lines[1];
}

TEST(BaseSink, TimestampIsTheLocalTimeOfTheRecord) {
    LineSink sink;
    // std::time may read a coarser clock than the sink; take both ends from the same clock.
    using Clock = std::chrono::system_clock;
    const std::time_t before = Clock::to_time_t(Clock::now());
    sink.info("now");
    const std::time_t after = Clock::to_time_t(Clock::now());
    ASSERT_EQ(sink.lines.size(), 1u);
    std::vector<std::string> candidates;
    for (std::time_t t = before; t <= after; ++t) {
        char text[32];
        std::tm calendar{};
        ::localtime_r(&t, &calendar);
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &calendar);
        candidates.emplace_back(text);
    }
    EXPECT_THAT(candidates, ::testing::Contains(sink.lines[0].substr(0, 19)));
}

TEST(BaseSink, FailingWriteIsReportedOnceAndNeverThrows) {
    for (bool inFormat : {false, true}) {
        SCOPED_TRACE(inFormat ? "format" : "write");
        LineSink sink;
        std::vector<std::string> failures;
        sink.setErrorHandler([&](const std::string& message) { failures.push_back(message); });
        sink.throwInFormat = inFormat;
        sink.throwInWrite = !inFormat;
        for (int i = 0; i < 3; ++i)
            EXPECT_NO_THROW(sink.error("lost"));
        EXPECT_THAT(failures, ElementsAre(std::string("Log sink: record dropped | error=") +
                                          (inFormat ? "cannot format" : "disk on fire")));
        EXPECT_TRUE(sink.lines.empty());
    }
}

TEST(BaseSink, ThrowingErrorHandlerIsContained) {
    LineSink sink;
    sink.throwInWrite = true;
    sink.setErrorHandler([](const std::string&) { throw std::runtime_error("handler broken"); });
    EXPECT_NO_THROW(sink.info("lost"));
}

TEST(BaseSink, DefaultReportGoesToStandardError) {
    LineSink sink;
    sink.throwInWrite = true;
    ::testing::internal::CaptureStderr();
    sink.info("lost");
    sink.info("lost");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Log sink: record dropped | error=disk on fire\n");
}

TEST(BaseSink, LoggingFromInsideWriteKeepsBothRecordsIntact) {
    LineSink outer;
    LineSink inner;
    outer.forwardTo = &inner;
    const std::string longMessage(300, 'x'); // longer than any small-string buffer
    outer.info(longMessage);
    ASSERT_EQ(outer.lines.size(), 1u);
    ASSERT_EQ(inner.lines.size(), 1u);
    EXPECT_NE(outer.lines[0].find(longMessage + " | source="), std::string::npos) << outer.lines[0];
    EXPECT_NE(inner.lines[0].find("nested record | source="), std::string::npos) << inner.lines[0];
}

TEST(BaseSink, InvalidLevelIsAProgrammingErrorAndThrows) {
    LineSink sink;
    EXPECT_THROW(sink.log(static_cast<Level>(12), "m", "", DataType::Text, nullptr, 0), std::out_of_range);
    EXPECT_TRUE(sink.lines.empty());
}

} // namespace
} // namespace Zel::Log
