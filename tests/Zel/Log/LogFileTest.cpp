#include <Zel/Log/LogFile.h>

#include "TestSupport.h"

#include <Zel/GenericException.h>
#include <Zel/Log/ThreadContext.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

namespace Zel::Log {
namespace {

using Testing::crlfLines;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Testing::readFile;
using Testing::TempDir;

// Collects what a sink reports about its failures.
struct Failures {
    std::vector<std::string> messages;
    void attach(BaseSink& sink) {
        sink.setErrorHandler([this](const std::string& message) { messages.push_back(message); });
    }
};

// The number after "record " in each line, to check order and completeness.
std::vector<int> recordNumbers(const std::string& text) {
    std::vector<int> numbers;
    static const std::regex number(R"(record (\d+))");
    for (const std::string& line : crlfLines(text)) {
        std::smatch match;
        if (std::regex_search(line, match, number)) numbers.push_back(std::stoi(match[1]));
    }
    return numbers;
}

TEST(LogFile, WritesOneCrLfLinePerRecord) {
    TempDir dir;
    const auto path = dir / "app.log";
    {
        LogFile log(path);
        log.warning("Disk almost full | free=3%", "", DataType::Text, "/src/Zel/Tasks/Manager.cpp", 42);
        log.info("second", "plain data");
    }
    const std::string text = readFile(path);
    const auto lines = crlfLines(text);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(text.substr(text.size() - 2), "\r\n");
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
    EXPECT_TRUE(
        std::regex_match(lines[0], std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} Warning  \d+ )"
                                              R"(Disk almost full \| free=3% \| source=Manager\.cpp:42)")))
        << lines[0];
    EXPECT_TRUE(std::regex_match(lines[1], std::regex(R"(.* Info     \d+ second \| data=plain data )"
                                                      R"(\| source=LogFileTest\.cpp:\d+)")))
        << lines[1];
}

TEST(LogFile, JsonDataHasItsSecretsMaskedButTextDataDoesNot) {
    TempDir dir;
    const auto path = dir / "app.log";
    {
        LogFile log(path);
        log.info("login", R"({"user":"bob","password":"hunter2"})", DataType::Json);
        log.info("note", R"({"password":"kept as given"})", DataType::Text);
    }
    const auto lines = crlfLines(readFile(path));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[0], HasSubstr(R"(login | data={"user":"bob","password":"****"} | source=)"));
    EXPECT_THAT(lines[1], HasSubstr(R"(data={"password":"kept as given"})"));
}

TEST(LogFile, ShowsTheThreadContextWhenOneIsInstalled) {
    TempDir dir;
    const auto path = dir / "app.log";
    {
        LogFile log(path);
        log.info("outside");
        ThreadContext context(7, "import orders");
        log.info("inside");
    }
    const auto lines = crlfLines(readFile(path));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_THAT(lines[0], ::testing::Not(HasSubstr("[")));
    EXPECT_THAT(lines[1], HasSubstr(" [7:import orders] inside"));
}

TEST(LogFile, AppendsToAnExistingFileAndCreatesMissingDirectories) {
    TempDir dir;
    const auto path = dir / "a" / "b" / "app.log";
    { LogFile(path).info("record 1"); }
    { LogFile(path).info("record 2"); }
    EXPECT_THAT(recordNumbers(readFile(path)), ElementsAre(1, 2));
}

TEST(LogFile, ConstructorThrowsWhenTheFileCannotBeOpened) {
    TempDir dir;
    try {
        LogFile log(dir.path()); // a directory
        ADD_FAILURE() << "no exception";
    } catch (const GenericException& e) {
        EXPECT_EQ(e.message(),
                  "Log file: cannot open | path=" + dir.path().string() + " | error=Is a directory");
    }
}

TEST(LogFile, BufferedRecordsWaitForTheFlushLevel) {
    TempDir dir;
    const auto path = dir / "app.log";
    LogFile::Options options;
    options.flushLevel = Level::Warning;
    {
        LogFile log(path, options);
        log.info("record 1");
        log.debug("record 2");
        EXPECT_EQ(readFile(path), "");
        log.warning("record 3");
        EXPECT_THAT(recordNumbers(readFile(path)), ElementsAre(1, 2, 3));
        log.info("record 4");
        log.flush();
        EXPECT_THAT(recordNumbers(readFile(path)), ElementsAre(1, 2, 3, 4));
        log.notice("record 5");
    }
    EXPECT_THAT(recordNumbers(readFile(path)), ElementsAre(1, 2, 3, 4, 5));
}

TEST(LogFile, FullBufferIsWrittenWithoutAFlush) {
    TempDir dir;
    const auto path = dir / "app.log";
    LogFile::Options options;
    options.flushLevel = Level::Critical;
    options.bufferSize = 200;
    LogFile log(path, options);
    for (int i = 0; i < 10; ++i)
        log.info("record " + std::to_string(i));
    const auto numbers = recordNumbers(readFile(path));
    ASSERT_FALSE(numbers.empty());
    EXPECT_LT(numbers.size(), 10u);
    for (std::size_t i = 0; i < numbers.size(); ++i)
        EXPECT_EQ(numbers[i], static_cast<int>(i));
}

TEST(LogFile, RotationKeepsTheGivenNumberOfFilesAndNeverSplitsALine) {
    struct Row {
        Level flushLevel;
        const char* name;
    };
    for (const Row& row : {Row{Level::Trace, "immediate"}, Row{Level::Critical, "buffered"}}) {
        SCOPED_TRACE(row.name);
        TempDir dir;
        const auto path = dir / "app.log";
        LogFile::Options options;
        options.maxFileSize = 400;
        options.keptFiles = 2;
        options.flushLevel = row.flushLevel;
        {
            LogFile log(path, options);
            for (int i = 0; i < 40; ++i)
                log.info("record " + std::to_string(i), "", DataType::Text, nullptr, 0);
        }
        EXPECT_TRUE(std::filesystem::exists(dir / "app.1.log"));
        EXPECT_TRUE(std::filesystem::exists(dir / "app.2.log"));
        EXPECT_FALSE(std::filesystem::exists(dir / "app.3.log"));

        // Oldest to newest, the kept files hold one unbroken run of records ending with the last.
        std::vector<int> numbers;
        for (const char* name : {"app.2.log", "app.1.log", "app.log"}) {
            const std::string text = readFile(dir / name);
            EXPECT_LE(text.size(), options.maxFileSize) << name;
            EXPECT_EQ(text.substr(text.size() - 2), "\r\n") << name;
            for (const std::string& line : crlfLines(text))
                EXPECT_THAT(line, HasSubstr(" Info "));
            const auto part = recordNumbers(text);
            numbers.insert(numbers.end(), part.begin(), part.end());
        }
        ASSERT_FALSE(numbers.empty());
        EXPECT_EQ(numbers.back(), 39);
        for (std::size_t i = 1; i < numbers.size(); ++i)
            EXPECT_EQ(numbers[i], numbers[i - 1] + 1);
    }
}

TEST(LogFile, RotationWithoutKeptFilesEmptiesTheFile) {
    TempDir dir;
    const auto path = dir / "service";
    LogFile::Options options;
    options.maxFileSize = 300;
    options.keptFiles = 0;
    {
        LogFile log(path, options);
        for (int i = 0; i < 30; ++i)
            log.info("record " + std::to_string(i));
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 1);
    const std::string text = readFile(path);
    EXPECT_LE(text.size(), 300u);
    const auto numbers = recordNumbers(text);
    ASSERT_FALSE(numbers.empty());
    EXPECT_EQ(numbers.back(), 29);
}

TEST(LogFile, RotatedNamesWithoutExtension) {
    TempDir dir;
    const auto path = dir / "service";
    LogFile::Options options;
    options.maxFileSize = 100;
    options.keptFiles = 1;
    {
        LogFile log(path, options);
        for (int i = 0; i < 5; ++i)
            log.info("record " + std::to_string(i));
    }
    EXPECT_TRUE(std::filesystem::exists(dir / "service.1"));
    EXPECT_FALSE(std::filesystem::exists(dir / "service.2"));
}

TEST(LogFile, DiskFullIsReportedOnceAndTheCallerCarriesOn) {
    for (Level flushLevel : {Level::Trace, Level::Critical}) {
        SCOPED_TRACE(levelName(flushLevel));
        LogFile::Options options;
        options.flushLevel = flushLevel;
        options.bufferSize = 256;
        Failures failures;
        {
            LogFile log("/dev/full", options);
            failures.attach(log);
            for (int i = 0; i < 100; ++i)
                EXPECT_NO_THROW(log.error("record " + std::to_string(i)));
            EXPECT_NO_THROW(log.flush());
        }
        EXPECT_THAT(failures.messages,
                    ElementsAre("Log file: write failed | path=/dev/full | error=No space left on device"));
    }
}

TEST(LogFile, DefaultFailureReportGoesToStandardError) {
    ::testing::internal::CaptureStderr();
    {
        LogFile log("/dev/full");
        log.info("lost");
        log.info("lost too");
    }
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "Log file: write failed | path=/dev/full | error=No space left on device\n");
}

TEST(LogFile, RemovedFileIsReportedAndOpenedAgain) {
    TempDir dir;
    const auto path = dir / "app.log";
    LogFile::Options options;
    options.existenceCheckInterval = std::chrono::milliseconds(0);
    Failures failures;
    LogFile log(path, options);
    failures.attach(log);
    log.info("record 1");
    std::filesystem::remove(path);
    log.info("record 2");
    log.info("record 3");
    EXPECT_THAT(recordNumbers(readFile(path)), ElementsAre(2, 3));
    EXPECT_THAT(failures.messages,
                ElementsAre("Log file: file removed, opening it again | path=" + path.string()));
}

TEST(LogFile, LostDirectoryDropsRecordsUntilItComesBack) {
    TempDir dir;
    const auto path = dir / "logs" / "app.log";
    LogFile::Options options;
    options.existenceCheckInterval = std::chrono::milliseconds(0);
    Failures failures;
    LogFile log(path, options);
    failures.attach(log);
    log.info("record 1");
    std::filesystem::remove_all(dir / "logs");
    // Make the directory impossible to recreate: a plain file takes its name.
    { std::ofstream blocker(dir / "logs"); }
    for (int i = 2; i < 5; ++i)
        EXPECT_NO_THROW(log.info("record " + std::to_string(i)));
    std::filesystem::remove(dir / "logs");
    log.info("record 5");
    EXPECT_THAT(recordNumbers(readFile(path)), ElementsAre(5));
    // One report for the outage, none for every record lost during it.
    ASSERT_EQ(failures.messages.size(), 1u);
    EXPECT_EQ(failures.messages[0], "Log file: file removed, opening it again | path=" + path.string());
    // A new failure after recovery is reported again.
    std::filesystem::remove(path);
    log.info("record 6");
    EXPECT_EQ(failures.messages.size(), 2u);
}

TEST(LogFile, ReopenStartsANewFileAfterAnOutsideMove) {
    TempDir dir;
    const auto path = dir / "app.log";
    LogFile log(path);
    log.info("record 1");
    std::filesystem::rename(path, dir / "app.log.old");
    log.reopen();
    log.info("record 2");
    EXPECT_THAT(recordNumbers(readFile(dir / "app.log.old")), ElementsAre(1));
    EXPECT_THAT(recordNumbers(readFile(path)), ElementsAre(2));
}

TEST(LogFile, MinimalLevelFromTheOptions) {
    TempDir dir;
    const auto path = dir / "app.log";
    LogFile::Options options;
    options.minimalLevel = Level::Warning;
    {
        LogFile log(path, options);
        log.info("record 1");
        log.notice("record 2");
        log.error("record 3");
    }
    EXPECT_THAT(recordNumbers(readFile(path)), ElementsAre(3));
}

} // namespace
} // namespace Zel::Log
