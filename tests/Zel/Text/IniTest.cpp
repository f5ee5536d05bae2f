#include <Zel/ArgumentException.h>
#include <Zel/Text/FormatException.h>
#include <Zel/Text/Ini.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace Zel::Text {
namespace {

TEST(Ini, ReadsEveryOddityIntoATree) {
    const Variant tree = parseIni("\xEF\xBB\xBF; leading comment\r\n"
                                  "# another\r\n"
                                  "top = 1\r\n"
                                  "  spaced key   =   spaced value   \r\n"
                                  "empty =\r\n"
                                  "\r\n"
                                  "[ database ]   ; comment after the header\n"
                                  "host=db.local ; inline comment\n"
                                  "url = http://h/#anchor;x\n"
                                  "quoted = \"a \\\"b\\\" \\\\ \\n\\t\\u00e9 ; not a comment\"  # comment\n"
                                  "single = ' keep \\n as is '\n"
                                  "equals = a=b\n"
                                  "[other.section]\n"
                                  "host = second\n");
    EXPECT_EQ(tree.toJson(),
              "{\"database\":{\"equals\":\"a=b\",\"host\":\"db.local\",\"quoted\":\"a \\\"b\\\" \\\\ "
              "\\n\\t\xC3\xA9 ; not a comment\",\"single\":\" keep \\\\n as is \",\"url\":"
              "\"http://h/#anchor;x\"},\"empty\":\"\",\"other.section\":{\"host\":\"second\"},"
              "\"spaced key\":\"spaced value\",\"top\":\"1\"}");
}

TEST(Ini, RefusesBadFilesWithLines) {
    struct Row {
        std::string text;
        std::string message;
    };
    const std::vector<Row> rows = {
        {"a=1\nb=2\na=3\n", "INI: duplicate key | line=3 | key=a | first=1"},
        {"[s]\na=1\n\n a = 2", "INI: duplicate key | line=4 | key=a | first=2"},
        {"[s]\n[t]\n[s]\n", "INI: duplicate section | line=3 | section=s | first=1"},
        {"s=1\n[s]\n", "INI: duplicate key | line=2 | key=s | first=1"},
        {"[s\n", "INI: unterminated section name | line=1"},
        {"[s] x\n", "INI: text after section name | line=1"},
        {"[ ]\n", "INI: empty section name | line=1"},
        {"\n\njust text\n", "INI: expected key = value | line=3"},
        {" = v\n", "INI: empty key | line=1"},
        {"a = \"open\n", "INI: unterminated quoted value | line=1"},
        {"a = 'open\n", "INI: unterminated quoted value | line=1"},
        {"a = \"x\" y\n", "INI: text after quoted value | line=1"},
        {"a = \"\\q\"\n", "INI: bad escape | line=1 | escape=\\q"},
        {"a = \"\\u12\"\n", "INI: bad escape | line=1 | escape=\\u"},
        {"a = ok\nb = \xC3\x28\n", "Text: invalid UTF-8 | line=2 | column=5"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        try {
            parseIni(row.text);
            ADD_FAILURE() << "no error";
        } catch (const FormatException& error) {
            EXPECT_EQ(std::string(error.what()), row.message);
        }
    }
}

TEST(Ini, WritesWhatReadsBackTheSame) {
    Variant tree = Variant::makeMap();
    tree.setAt("name", "plain");
    tree.setAt("tricky", " spaced ; \"quoted\"\n\ttab\\ ");
    Variant section = Variant::makeMap();
    section.setAt("count", 3);
    section.setAt("empty", "");
    section.setAt("hash", "a #b");
    tree.setAt("section", section);
    const std::string text = writeIni(tree);
    EXPECT_EQ(text,
              "name = plain\ntricky = \" spaced ; \\\"quoted\\\"\\n\\ttab\\\\ \"\n\n[section]\ncount = 3\n"
              "empty = \nhash = \"a #b\"\n");
    Variant expected = tree;
    section.setAt("count", "3");
    expected.setAt("section", section);
    EXPECT_EQ(parseIni(text).toJson(), expected.toJson());

    Variant bad = Variant::makeMap();
    bad.setAt("a=b", "x");
    EXPECT_THROW(writeIni(bad), ArgumentException);
}

} // namespace
} // namespace Zel::Text
