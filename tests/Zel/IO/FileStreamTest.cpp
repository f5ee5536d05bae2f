#include <Zel/IO/BufferedStream.h>
#include <Zel/IO/FileStream.h>
#include <Zel/IO/IOException.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/IO/StringStream.h>
#include <Zel/NotSupportedException.h>
#include <atomic>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace Zel::IO {
namespace {

namespace fs = std::filesystem;

class FileStreamTest : public ::testing::Test {
protected:
    void SetUp() override {
        static std::atomic<int> counter{0};
        m_directory = fs::temp_directory_path() /
                      ("zel-io-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
        fs::remove_all(m_directory);
        fs::create_directories(m_directory);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(m_directory, ignored);
    }
    fs::path path(const std::string& name) const { return m_directory / name; }

    fs::path m_directory;
};

TEST_F(FileStreamTest, ReadsBackTheWrittenBytesPeekingAndSeekingButNotWriting) {
    std::string text;
    for (int i = 0; i < 20000; ++i)
        text += static_cast<char>(i * 7);
    {
        FileStream out(path("body.bin"), FileStream::Mode::Write);
        EXPECT_EQ(out.capabilities(), IStream::Writable | IStream::Seekable | IStream::LengthKnown);
        writeAll(out, text.data(), text.size());
        EXPECT_EQ(out.getLength(), 20000);
    }
    EXPECT_EQ(fs::file_size(path("body.bin")), 20000u);
    FileStream in(path("body.bin"));
    EXPECT_EQ(in.capabilities(),
              IStream::Readable | IStream::Seekable | IStream::Peekable | IStream::LengthKnown);
    EXPECT_EQ(in.getLength(), 20000);
    char buffer[8];
    EXPECT_EQ(in.peek(buffer, 8), 8u);
    EXPECT_EQ(std::string(buffer, 8), text.substr(0, 8));
    EXPECT_EQ(in.getPosition(), 0);
    EXPECT_EQ(readAll(in), text);
    EXPECT_EQ(in.getPosition(), 20000);
    in.setPosition(9);
    EXPECT_EQ(in.read(buffer, 3), 3u);
    EXPECT_EQ(std::string(buffer, 3), text.substr(9, 3));
    in.setEof();
    EXPECT_EQ(in.read(buffer, 1), 0u);
    EXPECT_THROW(in.write("x", 1), NotSupportedException);
}

TEST_F(FileStreamTest, AppendContinuesAndReadWriteSwitchesDirection) {
    {
        FileStream out(path("log.txt"), FileStream::Mode::Write);
        writeAll(out, "first\n", 6);
    }
    {
        FileStream out(path("log.txt"), FileStream::Mode::Append);
        writeAll(out, "second\n", 7);
    }
    FileStream both(path("log.txt"), FileStream::Mode::ReadWrite);
    char buffer[6];
    ASSERT_EQ(both.read(buffer, 6), 6u);
    writeAll(both, "SECOND", 6);
    both.setPosition(0);
    EXPECT_EQ(readAll(both), "first\nSECOND\n");
}

TEST_F(FileStreamTest, MissingFileFailsWithPathAndReason) {
    const fs::path missing = path("missing.txt");
    try {
        FileStream in(missing);
        FAIL() << "no exception";
    } catch (const IOException& e) {
        EXPECT_EQ(std::string(e.what()), "File stream: cannot open | path=" + missing.string() +
                                             " | error=No such file or directory");
    }
}

TEST_F(FileStreamTest, APipeIsReadableButNeitherSeekableNorPeekable) {
    const fs::path fifo = path("pipe");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    std::string text;
    for (int i = 0; i < 3000; ++i)
        text += std::to_string(i) + "\n";
    std::thread writer([&] {
        FileStream out(fifo, FileStream::Mode::Write);
        writeAll(out, text.data(), text.size());
    });
    FileStream in(fifo);
    EXPECT_EQ(in.capabilities(), static_cast<std::uint32_t>(IStream::Readable));
    EXPECT_EQ(in.getLength(), -1);
    char byte;
    EXPECT_THROW(in.peek(&byte, 1), NotSupportedException);
    // A buffer in front makes it peekable after all.
    BufferedStream buffered(std::shared_ptr<IStream>(&in, [](IStream*) {}), 256);
    char first[4];
    // A pipe may hand over fewer bytes than asked; each peek reads once more.
    while (buffered.peek(first, 4) < 4) {
    }
    EXPECT_EQ(std::string(first, 4), "0\n1\n");
    StringStream copy;
    EXPECT_EQ(buffered.copyTo(copy), static_cast<std::int64_t>(text.size()));
    writer.join();
    EXPECT_EQ(copy.str(), text);
}

} // namespace
} // namespace Zel::IO
