#include <Zel/Json/Json.h>
#include <Zel/Json/ParserException.h>
#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using Zel::Variant;
using Type = Zel::Variant::Type;

struct Accepted {
    std::string text;
    Type type;
    std::string json; // the value written back
};

TEST(JsonReader, ReadsEachTextIntoItsTagAndWritesItBack) {
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
        // Text after the first value is ignored.
        {"1 2", Type::Int32, "1"},
        {"{} garbage", Type::Map, "{}"},
        {"\"x\"]", Type::String, "\"x\""},
        // Trailing commas are accepted.
        {"[1,2,]", Type::Vector, "[1,2]"},
        {"{\"a\":1,}", Type::Map, "{\"a\":1}"},
        {"[ ]", Type::Vector, "[]"},
        {"{ }", Type::Map, "{}"},
        // A repeated key keeps the last value; objects come out in byte order.
        {R"({"k":1,"a":0,"k":2,"k":3})", Type::Map, R"({"a":0,"k":3})"},
        {R"({"b":1,"a":{"z":0,"Z":1},"\u00e9":2,"B":3})", Type::Map,
         "{\"B\":3,\"a\":{\"Z\":1,\"z\":0},\"b\":1,\"\xC3\xA9\":2}"},
    };
    for (const Accepted& row : cases) {
        SCOPED_TRACE(row.text);
        const Variant value = Zel::Json::parse(row.text);
        EXPECT_EQ(value.type(), row.type);
        EXPECT_EQ(value.toJson(), row.json);
    }
}

TEST(JsonReader, DecodesEscapes) {
    EXPECT_EQ(static_cast<std::string>(Zel::Json::parse(R"("\u00e9")")), "\xC3\xA9");
    EXPECT_EQ(static_cast<std::string>(Zel::Json::parse(R"("\u0041\u07FF\u0800")")), "A\xDF\xBF\xE0\xA0\x80");
    // Surrogate halves are converted one by one.
    EXPECT_EQ(static_cast<std::string>(Zel::Json::parse(R"("\uD83D\uDE00")")), "\xED\xA0\xBD\xED\xB8\x80");
    EXPECT_EQ(static_cast<std::string>(Zel::Json::parse(R"("\"\\\/\b\f\n\r\t")")), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(static_cast<std::string>(Zel::Json::parse("\"raw\x01\xFF\"")), "raw\x01\xFF");
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
        // A sign after a fraction or an exponent ends neither: the whole run is one bad number.
        {"0.1-7", "Invalid float format", true},
        {"[2.5e3+1]", "Invalid float format", true},
        {"1e5e", "Invalid float format", true},
        {"-.", "Invalid float format", true},
        {"-e5", "Invalid float format", true},
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

// Parses from a heap block of exactly the text's size, so that reading past the end is a fault
// under AddressSanitizer.
Variant parseExact(std::string_view text) {
    const auto block = std::make_unique<char[]>(text.size());
    std::copy(text.begin(), text.end(), block.get());
    return Zel::Json::parse(std::string_view(block.get(), text.size()));
}

std::uint64_t bitsOf(double value) {
    return std::bit_cast<std::uint64_t>(value);
}

// What the reader must make of a well-formed float: the double that from_chars reads.
double fromChars(std::string_view text) {
    double value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    EXPECT_EQ(result.ec, std::errc()) << text;
    EXPECT_EQ(result.ptr, text.data() + text.size()) << text;
    return value;
}

TEST(JsonReader, FloatsMatchFromCharsToTheLastBit) {
    // Around the limits of the fast conversions: halfway cases, 2^53, the ends of the double's
    // range, subnormals, more digits than 64 bits hold, zero with far exponents.
    const char* const cases[] = {
        "0.1",
        "0.3",
        "1e23",
        "1e22",
        "1e-22",
        "1.5e-23",
        "9007199254740993.0",
        "9007199254740992.5",
        "9007199254740995.0",
        "4503599627370497.5",
        "7.2057594037927933e16",
        "2.98023223876953125e-8",
        "1.7976931348623157e308",
        "2.2250738585072014e-308",
        "2.2250738585072011e-308",
        "4.9e-324",
        "123456789012345678.9",
        "1234567890123456789.0",
        "12345678901234567890123.5",
        "1.00000000000000011102230246251565404236316680908203125",
        "3.141592653589793238462643383279",
        "0.000000000000000000000000000001234",
        "-65.613616999999977",
        "43.420273000000009",
        "8.988465674311580536566680e307",
        "1448997445238699.0e0",
        "17.7e-1",
        "1.e5",
        "-.125",
        "0e500",
        "-0e-500",
        "00000000000000000000000000000.5",
        // An explicit plus sign in the exponent, as the writer spells large and small values.
        "1e+21",
        "1e+300",
        "5e-324",
    };
    for (const char* text : cases) {
        SCOPED_TRACE(text);
        const Variant value = parseExact(text);
        ASSERT_EQ(value.type(), Type::Double);
        EXPECT_EQ(bitsOf(value), bitsOf(fromChars(text)));
    }
}

TEST(JsonReader, GeneratedFloatsMatchFromCharsToTheLastBit) {
    std::mt19937_64 random(20240611);
    int compared = 0;
    for (int i = 0; i < 100000; ++i) {
        std::string digits;
        switch (random() % 3) {
        case 0: // near powers of two, where rounding ties live
            digits = std::to_string((std::uint64_t{1} << (50 + random() % 14)) + random() % 64 - 32);
            if (random() % 2) digits += '5';
            break;
        case 1:
            digits = std::to_string(random() >> (random() % 64));
            break;
        default:
            for (std::uint64_t length = 1 + random() % 24; length > 0; --length)
                digits += static_cast<char>('0' + random() % 10);
        }
        std::string text = random() % 3 == 0 ? "-" : "";
        // A value cannot start with the point; after a minus sign it may.
        const std::size_t point =
            std::min<std::size_t>(random() % (digits.size() + 1) + (text.empty() ? 1 : 0), digits.size());
        text += digits.substr(0, point) + "." + digits.substr(point);
        if (random() % 3 != 0) text += "e" + std::to_string(static_cast<int>(random() % 700) - 350);
        if (text.find_first_of("0123456789") == std::string::npos) continue;
        double expected = 0;
        const auto result = std::from_chars(text.data(), text.data() + text.size(), expected);
        if (result.ec != std::errc()) continue; // out of range: covered by the refusal table
        const Variant value = parseExact(text);
        ASSERT_EQ(value.type(), Type::Double) << text;
        ASSERT_EQ(bitsOf(value), bitsOf(expected)) << text;
        ++compared;
    }
    EXPECT_GT(compared, 90000);
}

TEST(JsonReader, IntegersOfEveryLengthBeforeEveryTerminator) {
    const std::string digits = "9223372036854775807";
    for (std::size_t length = 1; length <= digits.size(); ++length) {
        for (const std::string sign : {"", "-"}) {
            for (const std::string terminator : {"", ",", "]", " ", "}", "\n"}) {
                const std::string number = sign + digits.substr(0, length);
                SCOPED_TRACE(number + terminator);
                const Variant value = parseExact(number + terminator);
                const long long expected = std::stoll(number);
                EXPECT_EQ(value.type(),
                          expected >= -2147483648LL && expected <= 2147483647LL ? Type::Int32 : Type::Int64);
                EXPECT_EQ(value.toJson(), number);
            }
        }
    }
    // Beyond nineteen digits only leading zeros keep a value in range.
    EXPECT_EQ(parseExact("0000000000000000000000000042").toJson(), "42");
    EXPECT_EQ(parseExact("-00000000009223372036854775808").toJson(), "-9223372036854775808");
    EXPECT_EQ(parseExact("[12345678,123456789,1234567890123456]").toJson(),
              "[12345678,123456789,1234567890123456]");
    EXPECT_THROW(parseExact("18446744073709551615"), Zel::Json::ParserException);
    EXPECT_THROW(parseExact("00000000009223372036854775808"), Zel::Json::ParserException);
}

TEST(JsonReader, StringsOfEveryLengthWithAnEscapeAtEveryOffsetOfTheBlockScan) {
    for (std::size_t before = 0; before < 40; ++before) {
        EXPECT_EQ(static_cast<std::string>(parseExact("\"" + std::string(before, 'a') + "\"")),
                  std::string(before, 'a'));
        for (std::size_t after = 0; after < 40; ++after) {
            const std::string body = std::string(before, 'a') + "\\n" + std::string(after, 'b');
            const std::string decoded = std::string(before, 'a') + "\n" + std::string(after, 'b');
            SCOPED_TRACE(body);
            EXPECT_EQ(static_cast<std::string>(parseExact("\"" + body + "\"")), decoded);
            EXPECT_EQ(parseExact("{\"" + body + "\":1}").begin()->key(), decoded);
            EXPECT_THROW(parseExact("\"" + body), Zel::Json::ParserException);
            EXPECT_THROW(parseExact("{\"" + body), Zel::Json::ParserException);
        }
    }
}

TEST(JsonReader, WhiteSpaceRunsOfAnyLength) {
    const char pattern[] = " \t\r\n";
    for (std::size_t length = 0; length < 48; ++length) {
        std::string space;
        for (std::size_t i = 0; i < length; ++i)
            space += pattern[i % 4];
        SCOPED_TRACE(length);
        const std::string text = space + "{" + space + "\"k\"" + space + ":" + space + "[" + space + "1" +
                                 space + "," + space + "2" + space + "]" + space + "}" + space;
        EXPECT_EQ(parseExact(text).toJson(), "{\"k\":[1,2]}");
        // A control byte that is not white space ends the run and is refused where it stands.
        try {
            parseExact("[" + space + "\v1]");
            ADD_FAILURE() << "accepted";
        } catch (const Zel::GenericException& error) {
            EXPECT_EQ(std::string(error.what()), "Invalid character #11 at " + std::to_string(1 + length));
        }
        EXPECT_THROW(parseExact("[1," + space), Zel::Json::ParserException);
    }
}

TEST(JsonReader, ObjectsMatchAByteOrderedMapKeepingTheLastValue) {
    // Keys share long prefixes and hold NUL and high bytes; objects from one key to past the size
    // that is sorted on the stack.
    const std::string pieces[] = {
        "a", "b", "profile_", "profile_background_", std::string(1, '\0'), "\xff", "\xc3\xa9", "z",
        "A", "_", "0"};
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        const auto count = 1 + random() % (round % 3 == 0 ? 150 : 40);
        std::map<std::string, int> expected; // std::string orders by unsigned bytes
        std::string text = "{";
        for (unsigned i = 0; i < count; ++i) {
            std::string key;
            for (auto parts = random() % 5; parts > 0; --parts)
                key += pieces[random() % std::size(pieces)];
            expected[key] = static_cast<int>(i);
            text += (i ? "," : "") + Zel::Json::_encodeString(key) + ":" + std::to_string(i);
        }
        text += "}";
        SCOPED_TRACE(text);
        const Variant value = Zel::Json::parse(text);
        ASSERT_EQ(value.size(), expected.size());
        auto wanted = expected.begin();
        for (const auto& entry : value) {
            EXPECT_EQ(entry.key(), wanted->first);
            EXPECT_EQ(entry.value(), Variant(wanted->second));
            ++wanted;
        }
    }
}

TEST(JsonReader, EmptyArraysStayIndependent) {
    const Variant document = Zel::Json::parse(R"([[],[ ],{"a":[]}])");
    Variant first = document[0];
    first.push_back(Variant(1));
    Variant inner = document[2]["a"];
    inner.push_back(Variant(2));
    EXPECT_EQ(first.toJson(), "[1]");
    EXPECT_EQ(inner.toJson(), "[2]");
    EXPECT_EQ(document.toJson(), R"([[],[],{"a":[]}])");
    EXPECT_TRUE(Zel::Json::parse("[]").empty());
}

TEST(JsonReader, EmptyArraysChangedAndReleasedOnOtherThreads) {
    // Documents parsed on one thread are changed and released on others while it keeps parsing.
    constexpr int documents = 2000;
    std::vector<Variant> parsed(documents);
    std::thread reader([&parsed] {
        for (Variant& document : parsed)
            document = Zel::Json::parse("[[],[],[[]]]");
    });
    reader.join();
    std::vector<std::thread> writers;
    for (int part = 0; part < 2; ++part) {
        writers.emplace_back([&parsed, part] {
            for (std::size_t i = part; i < parsed.size(); i += 2) {
                Variant element = parsed[i][0];
                element.push_back(Variant(static_cast<int>(i)));
                parsed[i] = Variant(element);
            }
        });
    }
    for (int i = 0; i < documents; ++i)
        EXPECT_EQ(Zel::Json::parse("[[]]").toJson(), "[[]]");
    for (std::thread& writer : writers)
        writer.join();
    for (std::size_t i = 0; i < parsed.size(); ++i)
        ASSERT_EQ(parsed[i].toJson(), "[" + std::to_string(i) + "]");
}

TEST(JsonDecodeString, ResolvesEscapesAndReportsTheBadOne) {
    EXPECT_EQ(Zel::Json::decodeJsonString(R"(a\tb\u00e9\/)"), "a\tb\xC3\xA9/");
    EXPECT_EQ(Zel::Json::decodeJsonString("plain"), "plain");
    try {
        Zel::Json::decodeJsonString(R"(bad\qescape)");
        ADD_FAILURE() << "accepted";
    } catch (const Zel::GenericException& error) {
        EXPECT_EQ(std::string(error.what()),
                  R"(Json string "bad\qescape" can not be decoded. | error=Invalid character 'q)");
    }
    EXPECT_THROW(Zel::Json::decodeJsonString(R"(\u12G4)"), Zel::GenericException);
    EXPECT_THROW(Zel::Json::decodeJsonString("trailing\\"), Zel::GenericException);
}

} // namespace
