#include "TestStreams.h"

#include <Zel/ArgumentException.h>
#include <Zel/IO/BufferedStream.h>
#include <Zel/IO/StringStream.h>
#include <gtest/gtest.h>
#include <string>

namespace Zel::IO {
namespace {

using Testing::PieceStream;

std::string sampleText(std::size_t size) {
    std::string text;
    for (std::size_t i = 0; text.size() < size; ++i)
        text += "line " + std::to_string(i) + "\r\n";
    text.resize(size);
    return text;
}

TEST(BufferedStream, ReadByteReturnsEveryByteThenMinusOneReadingTheSourceABufferAtATime) {
    const std::string text = sampleText(5000) + std::string("\0\xff\x80", 3);
    for (const std::size_t piece : {1u, 7u, 100u, 5003u}) {
        SCOPED_TRACE(piece);
        const auto source = PieceStream::trickle(text, piece);
        BufferedStream stream(source, 64);
        std::string got;
        for (int byte; (byte = stream.readByte()) >= 0;)
            got += static_cast<char>(byte);
        EXPECT_EQ(got, text);
        // Each source read fills as much of the 64-byte buffer as the piece has left; one finds the end.
        std::size_t reads = 1;
        for (std::size_t at = 0; at < text.size(); at += piece)
            reads += (std::min(piece, text.size() - at) + 63) / 64;
        EXPECT_EQ(source->reads(), reads);
        EXPECT_EQ(stream.readByte(), -1);
        EXPECT_EQ(stream.position(), static_cast<std::int64_t>(text.size()));
    }
}

TEST(BufferedStream, MixedReadsPeeksAndBytesGiveTheSourceInOrder) {
    const std::string text = sampleText(20000);
    for (const std::size_t piece : {1u, 3u, 1000u}) {
        for (const std::size_t bufferSize : {16u, 100u, 8192u}) {
            SCOPED_TRACE("piece " + std::to_string(piece) + ", buffer " + std::to_string(bufferSize));
            BufferedStream stream(PieceStream::trickle(text, piece), bufferSize);
            std::string got;
            std::size_t step = 0;
            for (;;) {
                const std::size_t size = step++ % 37 + 1;
                std::string peeked(size, '\0');
                const std::size_t seen = stream.peek(peeked.data(), size);
                ASSERT_EQ(peeked.substr(0, seen), text.substr(got.size(), seen));
                if (step % 5 == 0) {
                    const int byte = stream.readByte();
                    if (byte < 0) break;
                    got += static_cast<char>(byte);
                    continue;
                }
                std::string chunk(size, '\0');
                const std::size_t count = stream.read(chunk.data(), size);
                if (count == 0) break;
                got.append(chunk.data(), count);
                ASSERT_EQ(stream.position(), static_cast<std::int64_t>(got.size()));
            }
            EXPECT_EQ(got, text);
        }
    }
}

TEST(BufferedStream, PeekLargerThanTheBufferGrowsIt) {
    const std::string text = sampleText(1000);
    BufferedStream stream(PieceStream::whole(text), 16);
    ASSERT_EQ(stream.readByte(), 'l');
    std::string peeked(500, '\0');
    EXPECT_EQ(stream.peek(peeked.data(), 500), 500u);
    EXPECT_EQ(peeked, text.substr(1, 500));
    EXPECT_EQ(stream.position(), 1);
    std::string rest(2000, '\0');
    rest.resize(stream.read(rest.data(), rest.size()));
    EXPECT_EQ(rest, text.substr(1, rest.size()));
}

TEST(BufferedStream, LargeReadsBypassTheBuffer) {
    const std::string text = sampleText(50000);
    const auto source = PieceStream::whole(text);
    BufferedStream stream(source, 1024);
    std::string target(50000, '\0');
    EXPECT_EQ(stream.read(target.data(), target.size()), 50000u);
    EXPECT_EQ(target, text);
    EXPECT_EQ(source->reads(), 1u);
}

TEST(BufferedStream, ScanningInPlaceSeesTheBufferedBytes) {
    BufferedStream stream(PieceStream::split("Host: a\r\nrest", 4), 64);
    EXPECT_EQ(stream.bufferedBegin(), stream.bufferedEnd());
    ASSERT_TRUE(stream.fill());
    EXPECT_EQ(std::string(stream.bufferedBegin(), stream.bufferedEnd()), "Host");
    ASSERT_TRUE(stream.fill());
    EXPECT_EQ(std::string(stream.bufferedBegin(), stream.bufferedEnd()), "Host: a\r\nrest");
    stream.consume(stream.bufferedBegin() + 9);
    EXPECT_EQ(stream.position(), 9);
    EXPECT_FALSE(stream.fill());
    char rest[8];
    EXPECT_EQ(stream.read(rest, 8), 4u);
    EXPECT_EQ(std::string(rest, 4), "rest");
}

TEST(BufferedStream, SetEofDropsBufferedBytesAndStopsReading) {
    const auto source = PieceStream::whole("abcdef");
    BufferedStream stream(source, 64);
    EXPECT_EQ(stream.readByte(), 'a');
    stream.setEof();
    char byte;
    EXPECT_EQ(stream.read(&byte, 1), 0u);
    EXPECT_EQ(stream.readByte(), -1);
    EXPECT_EQ(source->reads(), 1u);
}

TEST(BufferedStream, WritesGoStraightToTheSource) {
    const auto target = std::make_shared<StringStream>();
    BufferedStream stream(target);
    EXPECT_EQ(stream.write("HTTP/1.1 204 No Content\r\n\r\n", 27), 27u);
    EXPECT_EQ(target->str(), "HTTP/1.1 204 No Content\r\n\r\n");
    EXPECT_EQ(stream.capabilities(), IStream::Readable | IStream::Writable | IStream::Peekable);
    EXPECT_THROW(BufferedStream(nullptr), ArgumentException);
}

} // namespace
} // namespace Zel::IO
