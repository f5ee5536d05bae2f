#include "TestSupport.h"

#include <Zel/Log/LevelFilter.h>
#include <Zel/Log/LogFile.h>
#include <Zel/Log/LogStdOut.h>
#include <Zel/Log/LogString.h>
#include <Zel/Log/Macros.h>
#include <Zel/Log/ThreadContext.h>

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace Zel::Log {
namespace {

using Testing::crlfLines;
using Testing::readFile;
using Testing::TempDir;

constexpr int threadCount = 4;
constexpr int recordsPerThread = 1500;

template <typename Body>
void runThreads(Body body) {
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            // Start together so that the records really compete for the sink.
            ++ready;
            while (ready.load() < threadCount)
                std::this_thread::yield();
            body(t);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

// Checks that every line is whole and that each thread's records arrived complete and in order.
void expectWholeLinesInOrder(const std::vector<std::string>& lines, int expectedPerThread) {
    static const std::regex pattern(
        R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} Info     \d+ \[(\d):worker \d\] )"
        R"(thread (\d) record (\d+) x{100} \| data=\{"password":"\*\*\*\*"\})"
        R"( \| source=ConcurrencyTest\.cpp:\d+)");
    std::map<int, int> next;
    for (const std::string& line : lines) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, pattern)) << line;
        const int thread = std::stoi(match[2]);
        ASSERT_EQ(std::stoi(match[1]), thread);
        ASSERT_EQ(std::stoi(match[3]), next[thread]) << "thread " << thread;
        ++next[thread];
    }
    ASSERT_EQ(next.size(), static_cast<std::size_t>(threadCount));
    for (const auto& [thread, count] : next)
        EXPECT_EQ(count, expectedPerThread) << "thread " << thread;
}

void logFromThreads(ILog& log) {
    const std::string padding(100, 'x');
    runThreads([&](int t) {
        ThreadContext context(t, "worker " + std::to_string(t));
        for (int i = 0; i < recordsPerThread; ++i) {
            ZEL_LOG_INFO(log, "thread " + std::to_string(t) + " record " + std::to_string(i) + " " + padding,
                         R"({"password":"secret"})", DataType::Json);
        }
    });
}

TEST(Concurrency, FileLinesNeverInterleave) {
    for (Level flushLevel : {Level::Trace, Level::Critical}) {
        SCOPED_TRACE(levelName(flushLevel));
        TempDir dir;
        const auto path = dir / "app.log";
        LogFile::Options options;
        options.flushLevel = flushLevel;
        options.bufferSize = 4096;
        {
            LogFile log(path, options);
            logFromThreads(log);
        }
        expectWholeLinesInOrder(crlfLines(readFile(path)), recordsPerThread);
    }
}

TEST(Concurrency, RotationUnderLoadLosesNothing) {
    TempDir dir;
    LogFile::Options options;
    options.maxFileSize = 16 * 1024;
    options.keptFiles = 1000;
    {
        LogFile log(dir / "app.log", options);
        logFromThreads(log);
    }
    // Oldest first: app.<n>.log ... app.1.log, then app.log.
    std::vector<std::string> lines;
    std::size_t files = 0;
    while (std::filesystem::exists(dir / ("app." + std::to_string(files + 1) + ".log")))
        ++files;
    ASSERT_GT(files, 10u);
    for (std::size_t index = files; index >= 1; --index) {
        const std::string text = readFile(dir / ("app." + std::to_string(index) + ".log"));
        EXPECT_LE(text.size(), options.maxFileSize);
        const auto part = crlfLines(text);
        lines.insert(lines.end(), part.begin(), part.end());
    }
    const auto last = crlfLines(readFile(dir / "app.log"));
    lines.insert(lines.end(), last.begin(), last.end());
    expectWholeLinesInOrder(lines, recordsPerThread);
}

TEST(Concurrency, ConsoleLinesNeverInterleaveAcrossSinks) {
    LogStdOut first(Level::Trace, LogStdOut::Colours::Always);
    LogStdOut second(Level::Trace, LogStdOut::Colours::Always);
    ::testing::internal::CaptureStdout();
    runThreads([&](int t) {
        LogStdOut& sink = t % 2 == 0 ? first : second;
        for (int i = 0; i < 300; ++i)
            sink.warning("thread " + std::to_string(t) + " line " + std::to_string(i));
    });
    const std::string output = ::testing::internal::GetCapturedStdout();
    static const std::regex pattern(R"(\x1b\[95mthread \d line \d+\x1b\[0m)");
    std::size_t count = 0;
    std::size_t start = 0;
    for (std::size_t end; (end = output.find('\n', start)) != std::string::npos; start = end + 1, ++count) {
        const std::string line = output.substr(start, end - start);
        ASSERT_TRUE(std::regex_match(line, pattern)) << ::testing::PrintToString(line);
    }
    EXPECT_EQ(start, output.size());
    EXPECT_EQ(count, static_cast<std::size_t>(threadCount * 300));
}

TEST(Concurrency, MinimalLevelChangesWhileOthersLog) {
    auto inner = std::make_shared<LogString>();
    auto filter = std::make_shared<LevelFilter>(inner, Level::Info);
    std::atomic<bool> done{false};
    std::thread changer([&] {
        while (!done.load()) {
            filter->setMinimalLevel(Level::Error);
            inner->setMinimalLevel(Level::Warning);
            filter->setMinimalLevel(Level::Info);
            inner->setMinimalLevel(Level::Trace);
        }
    });
    runThreads([&](int) {
        for (int i = 0; i < 500; ++i) {
            ZEL_LOG_INFO(filter, "maybe");
            ZEL_LOG_CRITICAL(filter, "always");
        }
    });
    done = true;
    changer.join();
    std::size_t critical = 0;
    for (const auto& entry : inner->entries())
        critical += entry.level == Level::Critical ? 1 : 0;
    EXPECT_EQ(critical, static_cast<std::size_t>(threadCount * 500));
}

} // namespace
} // namespace Zel::Log
