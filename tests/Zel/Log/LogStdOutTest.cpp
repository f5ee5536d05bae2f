#include <Zel/Log/LogStdOut.h>
#include <cstdio>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace Zel::Log {
namespace {

using ::testing::ElementsAre;

std::string consoleOutput(LogStdOut::Colours colours, Level level, const std::string& message) {
    ::testing::internal::CaptureStdout();
    {
        LogStdOut log(Level::Trace, colours);
        log.log(level, message, "data is not shown", DataType::Text, "File.cpp", 3);
    }
    return ::testing::internal::GetCapturedStdout();
}

TEST(LogStdOut, ErrorsAreNamedInUpperCaseAndColoursFollowTheLevel) {
    struct Row {
        Level level;
        const char* plain;
        const char* coloured; // Info keeps the console's own colour
    };
    const Row rows[] = {
        {Level::Info, "Disk full | free=0\n", "Disk full | free=0\n"},
        {Level::Warning, "Disk full | free=0\n", "\x1b[95mDisk full | free=0\x1b[0m\n"},
        {Level::Notice, "Disk full | free=0\n", "\x1b[90mDisk full | free=0\x1b[0m\n"},
        {Level::Debug, "Disk full | free=0\n", "\x1b[90mDisk full | free=0\x1b[0m\n"},
        {Level::Trace, "Disk full | free=0\n", "\x1b[90mDisk full | free=0\x1b[0m\n"},
        {Level::Error, "ERROR: Disk full | free=0\n", "\x1b[91mERROR: Disk full | free=0\x1b[0m\n"},
        {Level::Critical, "CRITICAL: Disk full | free=0\n", "\x1b[91mCRITICAL: Disk full | free=0\x1b[0m\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(levelName(row.level));
        EXPECT_EQ(consoleOutput(LogStdOut::Colours::Never, row.level, "Disk full | free=0"), row.plain);
        EXPECT_EQ(consoleOutput(LogStdOut::Colours::Always, row.level, "Disk full | free=0"), row.coloured);
        // Captured output is a file, which is what Auto must detect.
        EXPECT_EQ(consoleOutput(LogStdOut::Colours::Auto, row.level, "Disk full | free=0"), row.plain);
    }
}

TEST(LogStdOut, MinimalLevelDropsLessSevereRecords) {
    ::testing::internal::CaptureStdout();
    {
        LogStdOut log(Level::Info, LogStdOut::Colours::Never);
        log.notice("dropped");
        log.info("kept");
        log.debug("dropped");
        log.error("kept");
    }
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "kept\nERROR: kept\n");
}

// A derived sink filters through the virtual levelEnabled before anything is written.
class ErrorsOnlyConsole : public LogStdOut {
public:
    ErrorsOnlyConsole() : LogStdOut(Level::Trace, Colours::Never) {}
    bool levelEnabled(Level level) const override { return level == Level::Error; }
};

TEST(LogStdOut, DerivedSinkCanFilterThroughLevelEnabled) {
    ::testing::internal::CaptureStdout();
    {
        ErrorsOnlyConsole log;
        log.critical("dropped");
        log.error("kept");
        log.info("dropped");
    }
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "ERROR: kept\n");
}

TEST(LogStdOut, FailedConsoleIsReportedOnce) {
    struct Row {
        const char* name;
        bool closed; // standard output closed, or pointing at a full disk
        const char* expected;
    };
    const Row rows[] = {
        {"disk full", false, "Log console: write failed | error=No space left on device"},
        {"closed descriptor", true, "Log console: write failed | error=Bad file descriptor"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        std::fflush(stdout);
        const int saved = ::dup(STDOUT_FILENO);
        ASSERT_GE(saved, 0);
        if (row.closed) {
            ::close(STDOUT_FILENO);
        } else {
            const int full = ::open("/dev/full", O_WRONLY);
            ASSERT_GE(full, 0);
            ::dup2(full, STDOUT_FILENO);
            ::close(full);
        }

        std::vector<std::string> failures;
        {
            LogStdOut log(Level::Trace, LogStdOut::Colours::Never);
            log.setErrorHandler([&](const std::string& message) { failures.push_back(message); });
            for (int i = 0; i < 5; ++i)
                log.info("lost");
        }

        ::dup2(saved, STDOUT_FILENO);
        ::close(saved);
        EXPECT_THAT(failures, ElementsAre(row.expected));
    }
}

} // namespace
} // namespace Zel::Log
