#include "../IO/TestStreams.h"

#include <Zel/ArgumentException.h>
#include <Zel/IO/StringStream.h>
#include <Zel/Text/CsvReader.h>
#include <Zel/Text/CsvWriter.h>
#include <Zel/Text/FormatException.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Zel::Text {
namespace {

using Rows = std::vector<std::vector<std::string>>;

// Every record, read through a stream that hands out `piece` bytes at a time, so that fields,
// quotes and CRLF pairs fall across refills.
Rows readAll(const std::string& text, CsvOptions options = {}, std::size_t piece = 1 << 20) {
    const auto stream = IO::Testing::PieceStream::trickle(text, piece);
    CsvReader reader(*stream, options);
    Rows rows;
    std::vector<std::string> fields;
    while (reader.readRow(fields))
        rows.push_back(fields);
    return rows;
}

TEST(Csv, ReadsRfc4180Records) {
    struct Row {
        std::string text;
        Rows rows;
    };
    const std::vector<Row> rows = {
        {"", {}},
        {"a,b,c", {{"a", "b", "c"}}},
        {"a,b\r\nc,d\r\n", {{"a", "b"}, {"c", "d"}}},
        {"a\nb\rc\r\n", {{"a"}, {"b"}, {"c"}}},
        {"a,,\n,\n", {{"a", "", ""}, {"", ""}}},
        {"a\n\nb\n", {{"a"}, {""}, {"b"}}},
        {"\"a,b\",\"say \"\"hi\"\"\"\n", {{"a,b", "say \"hi\""}}},
        {"\"line\r\nbreak\",x\n\"\"\n", {{"line\r\nbreak", "x"}, {""}}},
        {"\"\",\"\"", {{"", ""}}},
        {" a , b ", {{" a ", " b "}}},
        {"\xC3\xA4,\xE2\x82\xAC", {{"\xC3\xA4", "\xE2\x82\xAC"}}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        for (const std::size_t piece : {std::size_t{1}, std::size_t{2}, std::size_t{1} << 20})
            EXPECT_EQ(readAll(row.text, {}, piece), row.rows);
    }
}

TEST(Csv, RefusesMalformedRecordsWithLines) {
    struct Row {
        std::string text;
        std::string message;
        std::int64_t line;
    };
    const std::vector<Row> rows = {
        {"a\n\"open,b\nc\n", "CSV: unterminated quoted field | line=2 | field=1", 2},
        {"a,b\"c\n", "CSV: quote in unquoted field | line=1 | field=2", 1},
        {"x\n\"a\nb\"c,d\n", "CSV: unexpected character after closing quote | line=3 | field=1", 3},
        {"h1,h2\n1,2\n3\n", "CSV: wrong number of fields | line=3 | expected=2 | found=1", 3},
    };
    CsvOptions header;
    header.header = true;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        try {
            readAll(row.text, row.text.starts_with("h1") ? header : CsvOptions{}, 3);
            ADD_FAILURE() << "no error";
        } catch (const FormatException& error) {
            EXPECT_EQ(std::string(error.what()), row.message);
            EXPECT_EQ(error.line(), row.line);
        }
    }
    CsvOptions small;
    small.maxFieldSize = 4;
    EXPECT_THROW(readAll("\"abcdef\"", small), FormatException);
    small.quote = small.separator;
    EXPECT_THROW(readAll("", small), ArgumentException);
}

TEST(Csv, HeaderNamesColumnsAndOtherSeparatorsWork) {
    const auto stream = IO::Testing::PieceStream::whole("id;name\n1;\"x;y\"\n");
    CsvOptions options;
    options.separator = ';';
    options.header = true;
    CsvReader reader(*stream, options);
    EXPECT_THAT(reader.header(), ::testing::ElementsAre("id", "name"));
    EXPECT_EQ(reader.columnIndex("name"), 1);
    EXPECT_EQ(reader.columnIndex("none"), -1);
    std::vector<std::string> fields;
    ASSERT_TRUE(reader.readRow(fields));
    EXPECT_THAT(fields, ::testing::ElementsAre("1", "x;y"));
    EXPECT_EQ(reader.line(), 2);
    EXPECT_FALSE(reader.readRow(fields));
}

TEST(Csv, WritesWhatReadsBackTheSame) {
    const Rows rows = {
        {"plain", "with,comma", "with \"quote\""}, {"multi\r\nline", "", " spaced "}, {""}, {"\xE2\x82\xAC"}};
    IO::StringStream out;
    {
        CsvWriter writer(out);
        for (const auto& row : rows)
            writer.writeRow(row);
    }
    EXPECT_EQ(
        out.str(),
        "plain,\"with,comma\",\"with \"\"quote\"\"\"\r\n\"multi\r\nline\",, spaced \r\n\r\n\xE2\x82\xAC\r\n");
    EXPECT_EQ(readAll(out.str()), rows);
    CsvOptions tabs;
    tabs.separator = '\t';
    tabs.lineEnding = "\n";
    EXPECT_EQ(CsvWriter::formatRow({"a\tb", "c"}, tabs), "\"a\tb\"\tc\n");
}

TEST(Csv, StreamsAFileOfSeveralMegabytes) {
    // Deterministic records with every kind of field, written and read back.
    std::string text = "id,name,amount,comment\r\n";
    IO::StringStream out;
    CsvWriter writer(out);
    const int count = 60000;
    for (int i = 0; i < count; ++i) {
        const std::string n = std::to_string(i);
        writer.writeRow({n, "Customer " + n, std::to_string(i * 7 % 1000) + "." + std::to_string(i % 100),
                         i % 5 == 0 ? "says \"hello\",\nthen leaves" : "plain text " + n});
    }
    text += out.str();
    ASSERT_GT(text.size(), 2u * 1024 * 1024);

    const auto stream = IO::Testing::PieceStream::trickle(text, 4093);
    CsvOptions options;
    options.header = true;
    CsvReader reader(*stream, options);
    std::vector<std::string> fields;
    int read = 0;
    std::int64_t line = 2;
    while (reader.readRow(fields)) {
        const std::string n = std::to_string(read);
        ASSERT_EQ(reader.line(), line);
        ASSERT_EQ(fields[0], n);
        ASSERT_EQ(fields[1], "Customer " + n);
        ASSERT_EQ(fields[3], read % 5 == 0 ? "says \"hello\",\nthen leaves" : "plain text " + n);
        line += read % 5 == 0 ? 2 : 1;
        ++read;
    }
    EXPECT_EQ(read, count);
}

} // namespace
} // namespace Zel::Text
