#include "../../IO/TestStreams.h"
#include "SampleMessages.h"

#include <Zel/IO/BufferedStream.h>
#include <Zel/IO/StreamUtils.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Net/Http/ChunkedTransferBodyStream.h>
#include <Zel/Net/Http/ContentLengthBodyStream.h>
#include <Zel/Parser/UnexpectedCharException.h>
#include <Zel/Parser/UnexpectedEofException.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Zel::Net::Http {
namespace {

using IO::Testing::PieceStream;

// The chunked coding of `data` in chunks of the given sizes (cycled), hex digits in the given case.
std::string encodeChunked(const std::string& data, const std::vector<std::size_t>& sizes, bool upper) {
    std::string wire;
    std::size_t at = 0;
    for (std::size_t i = 0; at < data.size(); ++i) {
        const std::size_t size = std::min(sizes[i % sizes.size()], data.size() - at);
        char line[32];
        std::snprintf(line, sizeof line, upper ? "%zX\r\n" : "%zx\r\n", size);
        wire += line;
        wire += data.substr(at, size);
        wire += "\r\n";
        at += size;
    }
    return wire + "0\r\n\r\n";
}

std::string readInPieces(IO::IStream& stream, std::size_t piece) {
    std::string text;
    std::string buffer(piece, '\0');
    while (const std::size_t count = stream.read(buffer.data(), piece))
        text.append(buffer.data(), count);
    return text;
}

TEST(ChunkedTransferBodyStream, AnyBufferSizeOverAnySplitGivesTheSameBytes) {
    const std::string data = Samples::nginxBody + Samples::csvUpload;
    const std::string wire = encodeChunked(data, {16, 1, 200, 33}, false) + "NEXT";
    for (std::size_t piece = 1; piece <= 40; ++piece) {
        for (std::size_t split = 0; split <= wire.size(); split += 3) {
            SCOPED_TRACE("piece " + std::to_string(piece) + ", split " + std::to_string(split));
            const auto source = PieceStream::split(wire, split);
            ChunkedTransferBodyStream body(source);
            ASSERT_EQ(readInPieces(body, piece), data);
            ASSERT_EQ(body.getPosition(), static_cast<std::int64_t>(data.size()));
            // The terminator is consumed, the next message is not.
            ASSERT_EQ(source->rest(), "NEXT");
        }
    }
    // Through a buffered source, which reads ahead, with upper-case size digits.
    const std::string upper = encodeChunked(data, {7, 64, 2}, true) + "NEXT";
    for (std::size_t trickle = 1; trickle <= upper.size(); trickle += 5) {
        for (const std::size_t piece : {1u, 2u, 5u, 64u, 4096u}) {
            SCOPED_TRACE("buffered, trickle " + std::to_string(trickle) + ", piece " + std::to_string(piece));
            const auto source =
                std::make_shared<IO::BufferedStream>(PieceStream::trickle(upper, trickle), 16);
            ChunkedTransferBodyStream body(source);
            ASSERT_EQ(readInPieces(body, piece), data);
            ASSERT_EQ(IO::readAll(*source), "NEXT");
        }
    }
}

// Peeks decode ahead across chunks without moving the position, up to the last chunk, and what a
// peek decoded is still handed out by the reads after it.
TEST(ChunkedTransferBodyStream, MixedPeeksAndReadsGiveTheBodyInOrder) {
    const std::string data = Samples::csvUpload + Samples::apiJson;
    const std::string wire = encodeChunked(data, {5, 1, 17}, false);
    for (std::size_t pattern = 1; pattern <= 12; ++pattern) {
        SCOPED_TRACE(pattern);
        ChunkedTransferBodyStream body(PieceStream::trickle(wire, pattern));
        std::string got;
        for (std::size_t step = 0;; ++step) {
            const std::size_t size = (step * pattern) % 9 + 1;
            std::string buffer(size, '\0');
            const std::size_t seen = body.peek(buffer.data(), size);
            ASSERT_EQ(seen, std::min(size, data.size() - got.size()));
            ASSERT_EQ(buffer.substr(0, seen), data.substr(got.size(), seen));
            const std::size_t want = (step % 3 == 0) ? size : size / 2 + 1;
            const std::size_t count = body.read(buffer.data(), want);
            ASSERT_EQ(count, std::min(want, data.size() - got.size()));
            if (count == 0) break;
            got.append(buffer.data(), count);
            ASSERT_EQ(body.getPosition(), static_cast<std::int64_t>(got.size()));
        }
        EXPECT_EQ(got, data);
    }
}

TEST(ChunkedTransferBodyStream, SizeLinesAcceptHexDigitsOnly) {
    const std::string data(26, 'z');
    for (const std::string size : {"1a", "1A", "01a", "001A"}) {
        SCOPED_TRACE(size);
        ChunkedTransferBodyStream body(PieceStream::whole(size + "\r\n" + data + "\r\n0\r\n\r\n"));
        EXPECT_EQ(IO::readAll(body), data);
    }
    ChunkedTransferBodyStream empty(PieceStream::whole("0\r\n\r\n"));
    char byte;
    EXPECT_EQ(empty.read(&byte, 1), 0u);
    EXPECT_EQ(empty.read(&byte, 1), 0u);
}

TEST(ChunkedTransferBodyStream, MalformedCodingFailsAtTheOffendingByte) {
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"1a;ext=1\r\n", "Unexpected character | char=0x3b | position=2"},
        {"1a \r\n", "Unexpected character | char=0x20 | position=2"},
        {" 1a\r\n", "Unexpected character | char=0x20 | position=0"},
        {"-1\r\n", "Unexpected character | char=0x2d | position=0"},
        {"0x10\r\n", "Unexpected character | char=0x78 | position=1"},
        {"g\r\n", "Unexpected character | char=0x67 | position=0"},
        {"3\nabc", "Unexpected character | char=0xa | position=1"},
        {"3\r\rabc", "Unexpected character | char=0xd | position=2"},
        {"3\r\nabcX\r\n0\r\n\r\n", "Unexpected character | char=0x58 | position=6"},
        {"3\r\nabc\rX0\r\n\r\n", "Unexpected character | char=0x58 | position=7"},
        {"0\r\nExpires: 0\r\n\r\n", "Unexpected character | char=0x45 | position=3"},
        {"0\r\n\n", "Unexpected character | char=0xa | position=3"},
        {"", "Unexpected end of data | size=0"},
        {"5", "Unexpected end of data | size=1"},
        {"5\r\nhel", "Unexpected end of data | size=6"},
        {"5\r\nhello", "Unexpected end of data | size=8"},
        {"5\r\nhello\r\n", "Unexpected end of data | size=10"},
        {"5\r\nhello\r\n0\r\n", "Unexpected end of data | size=13"},
        {"5\r\nhello\r\n0\r\n\r", "Unexpected end of data | size=14"},
    };
    for (const auto& [wire, message] : rows) {
        for (const bool buffered : {false, true}) {
            SCOPED_TRACE(wire + (buffered ? " (buffered)" : ""));
            std::shared_ptr<IO::IStream> source = PieceStream::trickle(wire, 2);
            if (buffered) source = std::make_shared<IO::BufferedStream>(source, 16);
            ChunkedTransferBodyStream body(source);
            try {
                IO::readAll(body);
                ADD_FAILURE() << "no exception";
            } catch (const Parser::ParserException& e) {
                EXPECT_EQ(std::string(e.what()), message);
                const bool eof = message.starts_with("Unexpected end");
                EXPECT_EQ(dynamic_cast<const Parser::UnexpectedEofException*>(&e) != nullptr, eof);
            }
        }
    }
}

TEST(ChunkedTransferBodyStream, DataBeforeAFaultIsDeliveredFirst) {
    ChunkedTransferBodyStream body(PieceStream::whole("5\r\nhello\r\n3\r\nab"));
    char buffer[5];
    ASSERT_EQ(body.read(buffer, 5), 5u);
    EXPECT_EQ(std::string(buffer, 5), "hello");
    EXPECT_THROW(body.read(buffer, 5), Parser::UnexpectedEofException);
}

TEST(ChunkedTransferBodyStream, CapabilitiesAndSetEof) {
    const auto source = std::make_shared<IO::StringStream>(std::string("5\r\nhello\r\n0\r\n\r\n"));
    ChunkedTransferBodyStream body(source);
    EXPECT_EQ(body.capabilities(), IO::IStream::Readable | IO::IStream::Peekable);
    EXPECT_EQ(ChunkedTransferBodyStream(PieceStream::whole("")).capabilities(),
              static_cast<std::uint32_t>(IO::IStream::Readable));
    EXPECT_EQ(body.getLength(), -1);
    EXPECT_EQ(body.write("x", 1), 0u);
    char buffer[2];
    ASSERT_EQ(body.peek(buffer, 2), 2u);
    body.setEof();
    EXPECT_EQ(body.read(buffer, 2), 0u);
}

TEST(ContentLengthBodyStream, StopsAtTheLengthAndLeavesTheRest) {
    const std::string wire = "0123456789NEXT";
    for (std::size_t piece = 1; piece <= 12; ++piece) {
        SCOPED_TRACE(piece);
        const auto source = PieceStream::trickle(wire, 3);
        ContentLengthBodyStream body(source, 10);
        EXPECT_EQ(readInPieces(body, piece), "0123456789");
        EXPECT_EQ(body.getPosition(), 10);
        EXPECT_EQ(body.getLength(), 10);
        EXPECT_EQ(source->rest(), "NEXT");
    }
}

TEST(ContentLengthBodyStream, AShortSourceEndsEarlyWithoutError) {
    ContentLengthBodyStream body(PieceStream::whole("01234"), 10);
    EXPECT_EQ(IO::readAll(body), "01234");
    EXPECT_EQ(body.getPosition(), 5);
    EXPECT_EQ(body.getLength(), 10);
}

TEST(ContentLengthBodyStream, PeekIsLimitedToTheBody) {
    const auto source = std::make_shared<IO::StringStream>(std::string("abcNEXT"));
    ContentLengthBodyStream body(source, 3);
    char buffer[8];
    EXPECT_EQ(body.peek(buffer, 8), 3u);
    EXPECT_EQ(std::string(buffer, 3), "abc");
    EXPECT_EQ(body.getPosition(), 0);
    EXPECT_EQ(body.capabilities(), 25u);
    EXPECT_EQ(ContentLengthBodyStream(PieceStream::whole(""), 1).capabilities(), 25u);
    EXPECT_EQ(body.write("x", 1), 0u);
    EXPECT_EQ(source->str(), "abcNEXT");
}

TEST(ContentLengthBodyStream, NegativeOrEndedLengthsReadNothing) {
    ContentLengthBodyStream negative(PieceStream::whole("abc"), -5);
    char buffer[4];
    EXPECT_EQ(negative.read(buffer, 4), 0u);
    EXPECT_EQ(negative.peek(buffer, 4), 0u);
    ContentLengthBodyStream ended(PieceStream::whole("abcdef"), 6);
    ASSERT_EQ(ended.read(buffer, 2), 2u);
    ended.setEof();
    EXPECT_EQ(ended.read(buffer, 4), 0u);
    EXPECT_EQ(ended.getLength(), 2);
}

} // namespace
} // namespace Zel::Net::Http
