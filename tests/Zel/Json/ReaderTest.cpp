#include <Zel/Json/Json.h>

#include <Zel/Json/ParserException.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using Zel::Variant;
using Type = Zel::Variant::Type;

struct Accepted {
    std::string text;
    Type type;
    std::string json; // the value written back
};

TEST(JsonReader, ReadsScalarsIntoTheirTags) {
    const Accepted cases[] = {
        {"null", Type::Null, "null"},
        {"true", Type::Bool, "true"},
        {"false", Type::Bool, "false"},
        {"0", Type::Int32, "0"},
        {"-0", Type::Int32, "0"},
        {"2147483647", Type::Int32, "2147483647"},
        {"-2147483648", Type::Int32, "-2147483648"},
        {"2147483648", Type::Int64, "2147483648"},
        {"-2147483649", Type::Int64, "-2147483649"},
        {"9223372036854775807", Type::Int64, "9223372036854775807"},
        {"-9223372036854775808", Type::Int64, "-9223372036854775808"},
        {"1.0", Type::Double, "1.0"},
        {"1.5e3", Type::Double, "1500.0"},
        {"1E-2", Type::Double, "0.01"},
        {"-0.0", Type::Double, "-0.0"},
        {"1e-400", Type::Double, "0.0"},
        {"012", Type::Int32, "12"},
        {"1.", Type::Double, "1.0"},
        {"\"\"", Type::String, "\"\""},
        {"\"a\\\"b\"", Type::String, "\"a\\\"b\""},
        {"  \t\r\n 7 ", Type::Int32, "7"},
    };
    for (const Accepted& row : cases) {
        SCOPED_TRACE(row.text);
        const Variant value = Zel::Json::parse(row.text);
        EXPECT_EQ(value.type(), row.type);
        EXPECT_EQ(value.toJson(), row.json);
    }
}

TEST(JsonReader, IgnoresTextAfterTheFirstValue) {
    EXPECT_EQ(Zel::Json::parse("1 2"), Variant(1));
    EXPECT_EQ(Zel::Json::parse("{} garbage").toJson(), "{}");
    EXPECT_EQ(Zel::Json::parse("\"x\"]").toJson(), "\"x\"");
}

TEST(JsonReader, AcceptsTrailingCommas) {
    EXPECT_EQ(Zel::Json::parse("[1,2,]").toJson(), "[1,2]");
    EXPECT_EQ(Zel::Json::parse("[1,2,]").size(), 2u);
    EXPECT_EQ(Zel::Json::parse("{\"a\":1,}").toJson(), "{\"a\":1}");
    EXPECT_EQ(Zel::Json::parse("[ ]").toJson(), "[]");
    EXPECT_EQ(Zel::Json::parse("{ }").toJson(), "{}");
}

TEST(JsonReader, RepeatedKeyKeepsTheLastValue) {
    const Variant value = Zel::Json::parse(R"({"k":1,"a":0,"k":2,"k":3})");
    EXPECT_EQ(value.size(), 2u);
    EXPECT_EQ(value["k"], Variant(3));
}

TEST(JsonReader, ObjectsComeOutInByteOrder) {
    EXPECT_EQ(Zel::Json::parse(R"({"b":1,"a":{"z":0,"Z":1},"\u00e9":2,"B":3})").toJson(),
              "{\"B\":3,\"a\":{\"Z\":1,\"z\":0},\"b\":1,\"\xC3\xA9\":2}");
}

TEST(JsonReader, DecodesEscapes) {
    EXPECT_EQ(static_cast<std::string>(Zel::Json::parse(R"("\u00e9")")), "\xC3\xA9");
    EXPECT_EQ(static_cast<std::string>(Zel::Json::parse(R"("\u0041\u07FF\u0800")")), "A\xDF\xBF\xE0\xA0\x80");
    // Surrogate halves are converted one by one.
    EXPECT_EQ(static_cast<std::string>(Zel::Json::parse(R"("\uD83D\uDE00")")), "\xED\xA0\xBD\xED\xB8\x80");
    EXPECT_EQ(static_cast<std::string>(Zel::Json::parse(R"("\"\\\/\b\f\n\r\t")")), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(static_cast<std::string>(Zel::Json::parse("\"raw\x01\xFF\"")), "raw\x01\xFF");
}

TEST(JsonReader, ReadsLongStringsAcrossTheWordScan) {
    for (std::size_t length : {7u, 8u, 9u, 15u, 16u, 17u, 100u}) {
        SCOPED_TRACE(length);
        const std::string body(length, 'x');
        EXPECT_EQ(static_cast<std::string>(Zel::Json::parse("\"" + body + "\"")), body);
        EXPECT_EQ(static_cast<std::string>(Zel::Json::parse("\"" + body + "\\n" + body + "\"")), body + "\n" + body);
    }
}

struct Refused {
    std::string text;
    std::string message;
    bool parserException; // a Json::ParserException rather than a plain GenericException
};

TEST(JsonReader, RefusesBadInputWithExactTexts) {
    const Refused cases[] = {
        {"", "Unexpected end", true},
        {" \n\t\r", "Unexpected end", true},
        {"[1,2", "Unexpected end", true},
        {"{\"a\":1", "Unexpected end", true},
        {"\"abc", "Unexpected end", true},
        {"\"abc\\", "Unexpected end", true},
        {"\"\\u12", "Unexpected end", true},
        {"tru", "Unexpected end", true},
        {"9223372036854775808", "Invalid integer format", true},
        {"-9223372036854775809", "Invalid integer format", true},
        {"99999999999999999999999", "Invalid integer format", true},
        {"+1", "Invalid integer format", true},
        {"-", "Invalid integer format", true},
        {"-x", "Invalid integer format", true},
        {"1-2", "Invalid integer format", true},
        {"1e400", "Float out of range", true},
        {"-1e400", "Float out of range", true},
        {"1.2.3", "Invalid float format", true},
        {"+1.5", "Invalid float format", true},
        {"1e", "Invalid float format", true},
        // A byte refused where a value starts is reported where it stands.
        {"x", "Invalid character #120 at 0", false},
        {"[.5]", "Invalid character #46 at 1", false},
        {"{1:2}", "Invalid character #49 at 1", false},
        {"{\"a\":1,2}", "Invalid character #50 at 7", false},
        // A byte refused after it was consumed is reported by the position after it.
        {"trUe", "Invalid character #101 at 3", false},
        {"nul", "Unexpected end", true},
        {"[1x]", "Invalid character #93 at 3", false},
        {"[1x", "Invalid character #0 at 3", false},
        {"{\"a\" 1}", "Invalid character #125 at 6", false},
        {"{\"a\":1;}", "Invalid character #125 at 7", false},
        {"\"\\x\"", "Invalid character #34 at 3", false},
        {"\"\\u00G0\"", "Invalid character #48 at 6", false},
    };
    for (const Refused& row : cases) {
        SCOPED_TRACE(row.text);
        try {
            Zel::Json::parse(row.text);
            ADD_FAILURE() << "accepted";
        } catch (const Zel::Json::ParserException& error) {
            EXPECT_TRUE(row.parserException);
            EXPECT_EQ(std::string(error.what()), row.message);
        } catch (const Zel::GenericException& error) {
            EXPECT_FALSE(row.parserException);
            EXPECT_EQ(std::string(error.what()), row.message);
        }
    }
}

TEST(JsonReader, ParsesFromAViewWithoutReadingPastIt) {
    const std::string text = "[1,2]trailing";
    EXPECT_EQ(Zel::Json::parse(std::string_view(text).substr(0, 5)).toJson(), "[1,2]");
    // The view ends inside the number: the number ends there too.
    EXPECT_EQ(Zel::Json::parse(std::string_view("12345", 2)), Variant(12));
    EXPECT_THROW(Zel::Json::parse(std::string_view(text).substr(0, 4)), Zel::Json::ParserException);
}

TEST(JsonDecodeString, ResolvesEscapesAndReportsTheBadOne) {
    EXPECT_EQ(Zel::Json::decodeJsonString(R"(a\tb\u00e9\/)"), "a\tb\xC3\xA9/");
    EXPECT_EQ(Zel::Json::decodeJsonString("plain"), "plain");
    try {
        Zel::Json::decodeJsonString(R"(bad\qescape)");
        ADD_FAILURE() << "accepted";
    } catch (const Zel::GenericException& error) {
        EXPECT_EQ(std::string(error.what()), R"(Json string "bad\qescape" can not be decoded. | error=Invalid character 'q)");
    }
    EXPECT_THROW(Zel::Json::decodeJsonString(R"(\u12G4)"), Zel::GenericException);
    EXPECT_THROW(Zel::Json::decodeJsonString("trailing\\"), Zel::GenericException);
}

} // namespace
