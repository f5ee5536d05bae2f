#include "TestSupport.h"

#include <Zel/GenericException.h>
#include <Zel/Log/LogFile.h>
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
    EXPECT_EQ(Testing::messageOf<GenericException>([&] { LogFile log(dir.path()); }), // a directory
              "Log file: cannot open | path=" + dir.path().string() + " | error=Is a directory");
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
        const char* name;
        Level flushLevel;
        const char* file;
        int keptFiles;
        std::vector<std::string> files; // all that must be left, oldest first
    };
    const Row rows[] = {
        {"immediate", Level::Trace, "app.log", 2, {"app.2.log", "app.1.log", "app.log"}},
        {"buffered", Level::Critical, "app.log", 2, {"app.2.log", "app.1.log", "app.log"}},
        {"no extension", Level::Trace, "service", 1, {"service.1", "service"}},
        {"nothing kept empties the file", Level::Trace, "service", 0, {"service"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        TempDir dir;
        LogFile::Options options;
        options.maxFileSize = 400;
        options.keptFiles = row.keptFiles;
        options.flushLevel = row.flushLevel;
        {
            LogFile log(dir / row.file, options);
            for (int i = 0; i < 40; ++i)
                log.info("record " + std::to_string(i), "", DataType::Text, nullptr, 0);
        }
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}),
                  static_cast<std::ptrdiff_t>(row.files.size()));

        // Oldest to newest, the kept files hold one unbroken run of records ending with the last.
        std::vector<int> numbers;
        for (const std::string& name : row.files) {
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

TEST(LogFile, DiskFullIsReportedOnceAndTheCallerCarriesOn) {
    for (Level flushLevel : {Level::Trace, Level::Critical}) {
        SCOPED_TRACE(levelName(flushLevel));
        LogFile::Options options;
        options.flushLevel = flushLevel;
        options.bufferSize = 256;
        std::vector<std::string> failures;
        {
            LogFile log("/dev/full", options);
            log.setErrorHandler([&](const std::string& message) { failures.push_back(message); });
            for (int i = 0; i < 100; ++i)
                EXPECT_NO_THROW(log.error("record " + std::to_string(i)));
            EXPECT_NO_THROW(log.flush());
        }
        EXPECT_THAT(failures,
                    ElementsAre("Log file: write failed | path=/dev/full | error=No space left on device"));
    }
}

TEST(LogFile, RemovedFileOrDirectoryIsReportedOnceAndOpenedAgain) {
    TempDir dir;
    const auto path = dir / "logs" / "app.log";
    LogFile::Options options;
    options.existenceCheckInterval = std::chrono::milliseconds(0);
    std::vector<std::string> failures;
    LogFile log(path, options);
    log.setErrorHandler([&](const std::string& message) { failures.push_back(message); });
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
    const std::string removed = "Log file: file removed, opening it again | path=" + path.string();
    EXPECT_THAT(failures, ElementsAre(removed));
    // A new failure after recovery is reported again, and the file is opened again for the rest.
    std::filesystem::remove(path);
    log.info("record 6");
    log.info("record 7");
    EXPECT_THAT(recordNumbers(readFile(path)), ElementsAre(6, 7));
    EXPECT_THAT(failures, ElementsAre(removed, removed));
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
