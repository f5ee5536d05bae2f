#include "TestSupport.h"

#include <Zel/Log/EventLog.h>
#include <Zel/NotSupportedException.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Zel::Log {
namespace {

TEST(EventLog, ReportTextFillsTheFieldsInOrder) {
    EXPECT_EQ(
        EventLog::reportText(DataType::Json, "Order failed | id=5", "Zel/Tasks/Manager.cpp", 42, "{\"a\":1}"),
        "TYPE: Json\n\nMESSAGE: Order failed | id=5\n\nFILE: Zel/Tasks/Manager.cpp (42)\n\nDATA:\n{\"a\":1}");
    EXPECT_EQ(EventLog::reportText(DataType::Text, "m", nullptr, 0, ""),
              "TYPE: Text\n\nMESSAGE: m\n\nFILE:  (0)\n\nDATA:\n");
    // Printf-like directives in the fields are text, not format.
    EXPECT_EQ(EventLog::reportText(DataType::Xml, "%s%n", "%d", -1, "%%"),
              "TYPE: Xml\n\nMESSAGE: %s%n\n\nFILE: %d (-1)\n\nDATA:\n%%");
}

// Keeps the report texts instead of handing them to the system log, to see what log() and report()
// would send.
class RecordingEventLog : public EventLog {
public:
    using EventLog::EventLog;
    std::vector<std::string> texts;

protected:
    void write(const Record&, std::string_view text) override { texts.emplace_back(text); }
};

TEST(EventLog, LogSendsTheReportTextWithJsonSecretsMasked) {
    RecordingEventLog log("Orders", Level::Warning);
    log.info("below the default minimum");
    log.log(Level::Error, "Login failed", R"({"user":"bob","password":"x"})", DataType::Json, "Login.cpp", 8);
    log.log(Level::Error, "Raw", R"({"password":"x"})", DataType::Text, "Login.cpp", 9);
    ASSERT_EQ(log.texts.size(), 2u);
    EXPECT_EQ(log.texts[0], "TYPE: Json\n\nMESSAGE: Login failed\n\nFILE: Login.cpp (8)\n\nDATA:\n"
                            R"({"user":"bob","password":"****"})");
    EXPECT_EQ(log.texts[1], "TYPE: Text\n\nMESSAGE: Raw\n\nFILE: Login.cpp (9)\n\nDATA:\n"
                            R"({"password":"x"})");
}

TEST(EventLog, ReportIgnoresTheMinimalLevel) {
    RecordingEventLog log("Orders", Level::Critical);
    log.report(Level::Debug, "asked for", "", DataType::Text, "F.cpp", 1);
    log.debug("filtered");
    ASSERT_EQ(log.texts.size(), 1u);
    EXPECT_EQ(log.texts[0], "TYPE: Text\n\nMESSAGE: asked for\n\nFILE: F.cpp (1)\n\nDATA:\n");
    EXPECT_THROW(log.report(static_cast<Level>(9), "m", "", DataType::Text, "F.cpp", 1), std::out_of_range);
}

TEST(EventLog, DefaultSourceAndMinimalLevel) {
    EventLog log;
    EXPECT_EQ(log.eventSource(), "Zel");
    EXPECT_EQ(log.minimalLevel(), Level::Warning);
}

TEST(EventLog, ReportingToTheRealSystemLogNeverFails) {
    // Whether or not a syslog daemon listens here, the caller must carry on.
    EventLog log("zel-log-test");
    std::vector<std::string> failures;
    log.setErrorHandler([&](const std::string& message) { failures.push_back(message); });
    EXPECT_NO_THROW(log.report(Level::Notice, "ZelLogTests run", "", DataType::Text, __FILE__, __LINE__));
    EXPECT_NO_THROW(log.error("ZelLogTests error record"));
    EXPECT_TRUE(failures.empty());
}

TEST(EventLog, ExportIsAWindowsFeature) {
    EventLog log;
    EXPECT_EQ(Testing::messageOf<NotSupportedException>([&] { log.exportEvents("events.evtx"); }),
              "Event log: export not supported on this platform");
}

} // namespace
} // namespace Zel::Log
