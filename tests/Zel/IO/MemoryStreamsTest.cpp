#include "TestStreams.h"

#include <Zel/ArgumentException.h>
#include <Zel/IO/IOException.h>
#include <Zel/IO/MemoryStream.h>
#include <Zel/IO/NullStream.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/IO/StringStream.h>
#include <Zel/NotSupportedException.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Zel::IO {
namespace {

using Testing::PieceSink;

std::string readInPieces(IStream& stream, std::size_t piece) {
    std::string text;
    std::string buffer(piece, '\0');
    while (const std::size_t count = stream.read(buffer.data(), piece))
        text.append(buffer.data(), count);
    return text;
}

TEST(StringStream, ReadsWhatWasWrittenInAnyPieceSize) {
    const std::string text = "GET /index.html HTTP/1.1\r\nHost: www.example.org\r\n\r\n";
    for (std::size_t piece = 1; piece <= text.size() + 1; ++piece) {
        SCOPED_TRACE(piece);
        StringStream stream;
        for (std::size_t at = 0; at < text.size(); at += 7)
            writeAll(stream, text.data() + at, std::min<std::size_t>(7, text.size() - at));
        EXPECT_EQ(readInPieces(stream, piece), text);
        EXPECT_EQ(stream.getPosition(), static_cast<std::int64_t>(text.size()));
        EXPECT_EQ(stream.read(nullptr, 0), 0u);
    }
}

TEST(StringStream, PeekLeavesTheBytesForTheNextRead) {
    StringStream stream(std::string("chunked"));
    char buffer[8] = {};
    EXPECT_EQ(stream.peek(buffer, 5), 5u);
    EXPECT_EQ(std::string(buffer, 5), "chunk");
    EXPECT_EQ(stream.getPosition(), 0);
    EXPECT_EQ(stream.read(buffer, 8), 7u);
    EXPECT_EQ(std::string(buffer, 7), "chunked");
    EXPECT_EQ(stream.peek(buffer, 8), 0u);
}

TEST(StringStream, WritesAppendBehindUnreadBytes) {
    StringStream stream(std::string("abc"));
    char buffer[2];
    ASSERT_EQ(stream.read(buffer, 2), 2u);
    stream.write("de", 2);
    EXPECT_EQ(stream.unread(), "cde");
    EXPECT_EQ(stream.getLength(), 5);
    EXPECT_EQ(stream.str(), "abcde");
}

TEST(StringStream, SetPositionRewindsAndRefusesPositionsOutsideTheText) {
    StringStream stream(std::string("0123456789"));
    stream.setPosition(7);
    EXPECT_EQ(stream.unread(), "789");
    stream.setPosition(0);
    EXPECT_EQ(stream.unread(), "0123456789");
    stream.setPosition(10);
    EXPECT_EQ(stream.unread(), "");
    for (const std::int64_t bad : {std::int64_t{-1}, std::int64_t{11}}) {
        SCOPED_TRACE(bad);
        try {
            stream.setPosition(bad);
            FAIL() << "no exception";
        } catch (const ArgumentException& e) {
            EXPECT_EQ(std::string(e.what()),
                      "Stream: position out of range | position=" + std::to_string(bad) + " | length=10");
        }
    }
}

TEST(StringStream, CopyToWritesOnlyTheRestAndEndsTheStream) {
    StringStream stream(std::string("HTTP/1.1 200 OK\r\n"));
    stream.setPosition(9);
    PieceSink sink(3);
    EXPECT_EQ(stream.copyTo(sink), 8);
    EXPECT_EQ(sink.text(), "200 OK\r\n");
    EXPECT_EQ(sink.writes(), 3u);
    EXPECT_EQ(stream.copyTo(sink), 0);
}

TEST(StringStream, SetEofEndsReadingAndTakeEmptiesTheStream) {
    StringStream stream(std::string("body"));
    stream.setEof();
    char byte;
    EXPECT_EQ(stream.read(&byte, 1), 0u);
    EXPECT_EQ(stream.take(), "body");
    EXPECT_EQ(stream.getLength(), 0);
    EXPECT_EQ(stream.getPosition(), 0);
}

TEST(MemoryStream, ReadsAndSeeksOverTheBlockWithoutOwningIt) {
    const std::string block = "Content-Length: 42\r\n";
    MemoryStream stream(block);
    EXPECT_EQ(stream.capabilities(),
              IStream::Readable | IStream::Seekable | IStream::Peekable | IStream::LengthKnown);
    EXPECT_EQ(readInPieces(stream, 3), block);
    stream.setPosition(16);
    EXPECT_EQ(stream.unread(), "42\r\n");
    EXPECT_THROW(stream.setPosition(21), ArgumentException);
}

TEST(MemoryStream, WritesOverwriteInPlaceAndStopAtTheEnd) {
    char block[8] = {'-', '-', '-', '-', '-', '-', '-', '-'};
    MemoryStream stream(static_cast<void*>(block), sizeof block);
    EXPECT_NE(stream.capabilities() & IStream::Writable, 0u);
    stream.setPosition(5);
    EXPECT_EQ(stream.write("abcdef", 6), 3u);
    EXPECT_EQ(std::string(block, 8), "-----abc");
    EXPECT_EQ(stream.write("z", 1), 0u);
    stream.setPosition(0);
    try {
        writeAll(stream, "0123456789", 10);
        FAIL() << "no exception";
    } catch (const IOException& e) {
        EXPECT_STREQ(e.what(), "Stream: write took no bytes | written=8 | size=10");
    }
    EXPECT_EQ(std::string(block, 8), "01234567");
}

TEST(NullStream, YieldsNothingAndSwallowsWrites) {
    NullStream stream;
    char buffer[4];
    EXPECT_EQ(stream.read(buffer, 4), 0u);
    EXPECT_EQ(stream.peek(buffer, 4), 0u);
    EXPECT_EQ(stream.write("abcd", 4), 4u);
    EXPECT_EQ(stream.getLength(), 0);
    EXPECT_EQ(stream.capabilities() & IStream::LengthKnown, static_cast<std::uint32_t>(IStream::LengthKnown));
    StringStream target;
    EXPECT_EQ(stream.copyTo(target), 0);
    EXPECT_EQ(target.str(), "");
}

TEST(StreamUtils, ReadAllAndWriteAllCrossPieces) {
    std::string text;
    for (int i = 0; i < 5000; ++i)
        text += std::to_string(i) + ",";
    StringStream source(text);
    PieceSink sink(1000);
    writeAll(sink, text.data(), text.size());
    EXPECT_EQ(sink.text(), text);
    EXPECT_EQ(sink.writes(), (text.size() + 999) / 1000);
    EXPECT_EQ(readAll(source), text);
    EXPECT_EQ(readAll(source), "");
}

TEST(AbstractStream, OperationsAStreamLacksThrowWithTheirName) {
    Testing::PieceSink sink(4);
    const char block[] = "read only";
    MemoryStream constMemory(static_cast<const void*>(block), sizeof block - 1);
    char byte;
    const std::vector<std::pair<std::string, std::function<void()>>> calls = {
        {"read", [&] { sink.read(&byte, 1); }},
        {"peek", [&] { sink.peek(&byte, 1); }},
        {"setPosition", [&] { sink.setPosition(0); }},
        {"write", [&] { constMemory.write("x", 1); }},
    };
    for (const auto& [name, call] : calls) {
        SCOPED_TRACE(name);
        try {
            call();
            FAIL() << "no exception";
        } catch (const NotSupportedException& e) {
            EXPECT_EQ(std::string(e.what()), "Stream: operation not supported | operation=" + name);
        }
    }
    EXPECT_EQ(sink.getLength(), -1);
    EXPECT_EQ(std::string(block), "read only");
}

} // namespace
} // namespace Zel::IO
