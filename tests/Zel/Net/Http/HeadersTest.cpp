#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <Zel/Net/Http/Headers.h>
#include <Zel/Variant.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <vector>

namespace Zel::Net::Http {
namespace {

TEST(Headers, NamesIgnoreCaseAndKeepTheirFirstSpelling) {
    Headers headers;
    headers.set("content-length", "10");
    headers.set("Content-Length", "20");
    headers.set("CONTENT-LENGTH", std::string("30"));
    ASSERT_EQ(headers.size(), 1u);
    EXPECT_EQ(headers.begin()->first, "content-length");
    EXPECT_EQ(headers.get("Content-Length"), "30");
    EXPECT_EQ(headers.contentLength(), 30);
    EXPECT_EQ(headers.toString(), "content-length: 30\r\n");
    EXPECT_TRUE(headers.isSet("CoNtEnT-lEnGtH"));
    headers.erase("CONTENT-length");
    EXPECT_TRUE(headers.empty());
    headers.erase("Absent");
}

TEST(Headers, FoldingTouchesOnlyAsciiLetters) {
    Headers headers;
    headers.set("X-A_1", "a");
    EXPECT_FALSE(headers.isSet("X-a-1"));
    EXPECT_TRUE(headers.isSet("x-a_1"));
    // '@' and '`' sit next to the letters in ASCII; folding must not pair them with '`' and '@'.
    headers.set("@", "at");
    EXPECT_FALSE(headers.isSet("`"));
    headers.set("\xC4", "upper A-umlaut in Latin-1");
    EXPECT_FALSE(headers.isSet("\xE4"));
}

TEST(Headers, IntegersAreWrittenAndReadInDecimal) {
    Headers headers;
    headers.set("Zero", 0)
        .set("Negative", std::int64_t{-42})
        .set("Big", std::numeric_limits<std::int64_t>::max());
    headers.set("Unsigned", 7u).set("LongLong", 1234567890123LL);
    EXPECT_EQ(headers.get("Zero"), "0");
    EXPECT_EQ(headers.get("Negative"), "-42");
    EXPECT_EQ(headers.get("Big"), "9223372036854775807");
    EXPECT_EQ(headers.get("Unsigned"), "7");
    EXPECT_EQ(headers.get("LongLong"), "1234567890123");
}

TEST(Headers, GetConvertsTheLeadingDecimalInteger) {
    const std::vector<std::pair<std::string, std::int64_t>> rows = {
        {"1024", 1024},
        {"+17", 17},
        {"-5", -5},
        {"12abc", 12},
        {"abc", 0},
        {"", 0},
        {" 12", 0},
        {"-", 0},
        {"007", 7},
        {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
        {"9223372036854775808", std::numeric_limits<std::int64_t>::max()},
        {"99999999999999999999999", std::numeric_limits<std::int64_t>::max()},
        {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
        {"-99999999999999999999999", std::numeric_limits<std::int64_t>::min()},
    };
    for (const auto& [text, value] : rows) {
        SCOPED_TRACE(text);
        Headers headers;
        headers.set("Content-Length", text);
        EXPECT_EQ(headers.get("Content-Length", std::int64_t{-99}), value);
        EXPECT_EQ(headers.contentLength(), value);
    }
    Headers none;
    EXPECT_EQ(none.get("Content-Length", 77), 77);
    EXPECT_EQ(none.get("Content-Length", "fallback"), "fallback");
    EXPECT_EQ(none.get("Content-Length"), "");
    EXPECT_EQ(none.contentLength(), -1);
}

TEST(Headers, ContentTypeAndLengthHelpers) {
    Headers headers;
    EXPECT_EQ(headers.contentType(), "");
    headers.setContentType("text/html; charset=utf-8");
    EXPECT_EQ(headers.get("Content-Type"), "text/html; charset=utf-8");
    headers.setContentType("");
    EXPECT_FALSE(headers.isSet("Content-Type"));
    headers.setContentLength(512);
    EXPECT_EQ(headers.get("Content-Length"), "512");
}

TEST(Headers, ToStringAndTheHeadersViewGoInInsertionOrder) {
    Headers headers;
    headers.set("Host", "www.example.org").set("Accept", "*/*").set("Connection", "close");
    headers.set("ACCEPT", "text/html");
    std::string expected;
    for (const auto& [name, value] : headers.headers())
        expected += std::string(name) + ": " + std::string(value) + "\r\n";
    EXPECT_EQ(headers.toString(), expected);
    EXPECT_EQ(expected, "Host: www.example.org\r\nAccept: text/html\r\nConnection: close\r\n");
    EXPECT_EQ(Headers().toString(), "");
}

TEST(Headers, ManyHeadersStayFoundAndInOrder) {
    // Past the linear scan: the hash index must find every name in any spelling, through
    // replacements and erasures that move the stored text.
    Headers headers;
    for (int i = 0; i < 500; ++i)
        headers.set("X-Field-" + std::to_string(i), "value " + std::to_string(i));
    for (int i = 0; i < 500; i += 2)
        headers.set("x-field-" + std::to_string(i), std::string(40, 'v'));
    for (int i = 0; i < 500; i += 3)
        headers.erase("X-FIELD-" + std::to_string(i));
    int position = 0;
    for (const auto& [name, value] : headers) {
        while (position % 3 == 0)
            ++position;
        ASSERT_EQ(name, "X-Field-" + std::to_string(position));
        ASSERT_EQ(value, position % 2 == 0 ? std::string(40, 'v') : "value " + std::to_string(position));
        ++position;
    }
    EXPECT_EQ(headers.size(), 500u - 167u);
    for (int i = 0; i < 500; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(headers.isSet("x-FIELD-" + std::to_string(i)), i % 3 != 0);
    }
    EXPECT_FALSE(headers.isSet("X-Field-500"));
    while (headers.size() > 3)
        headers.erase(std::string((*headers.begin()).first));
    EXPECT_EQ(headers.toString(), "X-Field-496: " + std::string(40, 'v') +
                                      "\r\nX-Field-497: value 497\r\nX-Field-499: value 499\r\n");
}

TEST(Headers, ValuesMayComeFromTheHeadersThemselves) {
    Headers headers;
    headers.set("A", "short").set("B", "a much longer value than the first");
    headers.set("A", *headers.find("B"));
    headers.set("C", *headers.find("A"));
    headers.set("B", headers.find("B")->substr(2, 4));
    EXPECT_EQ(headers.get("A"), "a much longer value than the first");
    EXPECT_EQ(headers.get("C"), "a much longer value than the first");
    EXPECT_EQ(headers.get("B"), "much");
    const Headers copy = headers;
    EXPECT_EQ(copy, headers);
    Headers reordered;
    reordered.set("C", copy.get("C")).set("B", "much").set("A", copy.get("A"));
    EXPECT_EQ(reordered, headers);
    reordered.set("b", "much");
    reordered.erase("B");
    reordered.set("b", "much");
    EXPECT_NE(reordered, headers); // same value, other spelling
}

TEST(Headers, JsonFormRoundTripsThroughAVariant) {
    Headers headers;
    headers.set("Content-Type", "application/json").set("X-Quote", "say \"hi\"\\").set("x-lower", "1");
    const Variant dto = Json::parse(headers.toJson());
    ASSERT_TRUE(dto.isMap());
    EXPECT_EQ(dto.size(), 3u);
    EXPECT_EQ(static_cast<std::string>(dto["X-Quote"]), "say \"hi\"\\");
    Headers copy;
    copy.set("Stale", "gone");
    copy.fromDto(dto);
    EXPECT_EQ(copy, headers);
    EXPECT_EQ(Headers().toJson(), "{}");
}

TEST(Headers, FromDtoConvertsValuesAndRefusesWhatCannotBeIterated) {
    Variant dto = Variant::makeMap();
    dto.setAt("Content-Length", 42);
    dto.setAt("Connection", "keep-alive");
    Headers headers;
    headers.fromDto(dto);
    EXPECT_EQ(headers.contentLength(), 42);
    EXPECT_EQ(headers.get("connection"), "keep-alive");

    for (const Variant& bad : {Variant(5), Variant("text"), Variant(true)}) {
        SCOPED_TRACE(bad.toJson());
        EXPECT_THAT([&] { headers.fromDto(bad); },
                    ::testing::ThrowsMessage<GenericException>(::testing::StrEq(
                        "Variant: You cannot iterate the type '" + Variant::typeToString(bad.type()) + "'")));
        EXPECT_EQ(headers.size(), 2u);
    }
}

} // namespace
} // namespace Zel::Net::Http
