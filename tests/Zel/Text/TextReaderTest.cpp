#include "../IO/TestStreams.h"

#include <Zel/Text/FormatException.h>
#include <Zel/Text/TextReader.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Zel::Text {
namespace {

std::vector<std::string> lines(const std::string& text, std::size_t piece) {
    const auto stream = IO::Testing::PieceStream::trickle(text, piece);
    TextReader reader(*stream);
    std::vector<std::string> result;
    std::string line;
    while (reader.readLine(line)) {
        result.push_back(line);
        EXPECT_EQ(reader.line(), static_cast<std::int64_t>(result.size()));
    }
    return result;
}

TEST(TextReader, SplitsLinesWhereverTheStreamBreaks) {
    struct Row {
        std::string text;
        std::vector<std::string> lines;
    };
    const std::vector<Row> rows = {
        {"", {}},
        {"\xEF\xBB\xBF", {}},
        {"\xEF\xBB\xBFone\r\ntwo\nthree", {"one", "two", "three"}},
        {"a\n\nb\n", {"a", "", "b"}},
        {"cr\rinside\r\n\r\n", {"cr\rinside", ""}},
        {"x\xEF\xBB\xBFy\n", {"x\xEF\xBB\xBFy"}}, // a mark inside the text is a character
        {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\n", {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        for (const std::size_t piece : {std::size_t{1}, std::size_t{2}, std::size_t{1} << 20})
            EXPECT_EQ(lines(row.text, piece), row.lines);
    }
}

TEST(TextReader, ReportsInvalidUtf8WithLineAndColumn) {
    struct Row {
        std::string text;
        std::string message;
    };
    const std::vector<Row> rows = {
        {"ok\nab\xFF", "Text: invalid UTF-8 | line=2 | column=3"},
        {"\xC0\xAF", "Text: invalid UTF-8 | line=1 | column=1"},             // overlong '/'
        {"12345678\xED\xA0\x80", "Text: invalid UTF-8 | line=1 | column=9"}, // surrogate
        {"\xF4\x90\x80\x80", "Text: invalid UTF-8 | line=1 | column=1"},     // above U+10FFFF
        {"\xE2\x82\n", "Text: invalid UTF-8 | line=1 | column=1"},           // cut short
        {"a\r\n\xC3\xA4\x80", "Text: invalid UTF-8 | line=2 | column=3"},    // stray continuation
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        try {
            lines(row.text, 1 << 20);
            ADD_FAILURE() << "no error";
        } catch (const FormatException& error) {
            EXPECT_EQ(std::string(error.what()), row.message);
        }
    }
}

} // namespace
} // namespace Zel::Text
