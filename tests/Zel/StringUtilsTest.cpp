#include <Zel/StringUtils.h>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

TEST(StringUtils, StoiFollowsTheStandardRules) {
    const std::pair<const char*, int> accepted[] = {
        {"0", 0}, {"42abc", 42}, {" \t\n+7", 7}, {"-2147483648", -2147483647 - 1}, {"2147483647", 2147483647},
        {"0x10", 0}, {"007", 7},
    };
    for (const auto& [text, value] : accepted) EXPECT_EQ(Zel::StringUtils::stoi(text), value) << text;
    std::size_t consumed = 0;
    EXPECT_EQ(Zel::StringUtils::stoi("  12px", &consumed), 12);
    EXPECT_EQ(consumed, 4u);
    for (const char* text : {"", "abc", "-", "+", " ", "+-1"}) {
        try {
            Zel::StringUtils::stoi(text);
            ADD_FAILURE() << text;
        } catch (const std::invalid_argument& error) {
            EXPECT_STREQ(error.what(), "invalid stoi argument");
        }
    }
    for (const char* text : {"2147483648", "-2147483649", "99999999999999999999999"}) {
        try {
            Zel::StringUtils::stoi(text);
            ADD_FAILURE() << text;
        } catch (const std::out_of_range& error) {
            EXPECT_STREQ(error.what(), "stoi argument out of range");
        }
    }
}

TEST(StringUtils, StoullReadsHexForCallbackAddresses) {
    EXPECT_EQ(Zel::StringUtils::stoull("7ffd12345678", nullptr, 16), 0x7ffd12345678ULL);
    EXPECT_EQ(Zel::StringUtils::stoull("0x1F", nullptr, 16), 0x1FULL);
    EXPECT_EQ(Zel::StringUtils::stoull("ffffffffffffffff", nullptr, 16), ~0ULL);
    EXPECT_EQ(Zel::StringUtils::stoull("-1"), ~0ULL);
    try {
        Zel::StringUtils::stoull("xyz", nullptr, 16);
        ADD_FAILURE();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "invalid stoull argument");
    }
    try {
        Zel::StringUtils::stoull("10000000000000000", nullptr, 16);
        ADD_FAILURE();
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "stoull argument out of range");
    }
}

TEST(StringUtils, ToUpperTouchesAsciiLettersOnly) {
    EXPECT_EQ(Zel::StringUtils::toUpper("critical: \xC3\xA9z"), "CRITICAL: \xC3\xA9Z");
}

} // namespace
