#include <Zel/Variant.h>

#include <Zel/ArgumentException.h>
#include <Zel/VariantInvalidOperationException.h>

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

namespace {

using Zel::Variant;

const std::string stringOperation =
    "Zel::Variant::operator class std::basic_string<char,struct std::char_traits<char>,class std::allocator<char> >";

// The operation named by the failure, or "" when the conversion succeeds.
std::string refusedOperation(const std::function<void()>& conversion) {
    try {
        conversion();
    } catch (const Zel::VariantInvalidOperationException& error) {
        const std::string text = error.what();
        const auto start = text.find("operation=") + 10;
        return text.substr(start, text.find(" | type=") - start);
    }
    return "";
}

TEST(VariantConversion, StringForms) {
    const std::pair<Variant, std::string> cases[] = {
        {Variant(), ""},
        {Variant(true), "1"},
        {Variant(false), "0"},
        {Variant(static_cast<unsigned char>(255)), "255"},
        {Variant(static_cast<short>(-5)), "-5"},
        {Variant(42), "42"},
        {Variant(std::int64_t{-9000000000}), "-9000000000"},
        {Variant(0.5f), "0.5"},
        {Variant(1234567.0), "1.23457e+06"},
        {Variant(0.1), "0.1"},
        {Variant(Zel::Time(7, 8, 9)), "07:08:09"},
        {Variant(Zel::Date(2024, 3, 5)), "2024-03-05"},
        {Variant(Zel::Date(9, 9, 1)), "9-09-01"},
        {Variant(Zel::DateTime(Zel::Date(2024, 3, 5), Zel::Time(7, 8, 9))), "2024-03-05 07:08:09"},
        {Variant("text"), "text"},
        {Variant(Zel::LongBinary("a\0b", 3)), std::string("a\0b", 3)},
    };
    for (const auto& [value, text] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(static_cast<std::string>(value), text);
    }
    EXPECT_EQ(refusedOperation([] { (void)static_cast<std::string>(Variant::makeMap()); }), stringOperation);
    EXPECT_EQ(refusedOperation([] { (void)static_cast<std::string>(Variant::makeVector()); }), stringOperation);
}

TEST(VariantConversion, Bool) {
    EXPECT_FALSE(static_cast<bool>(Variant()));
    EXPECT_TRUE(static_cast<bool>(Variant(std::int64_t{1} << 40)));
    EXPECT_TRUE(static_cast<bool>(Variant(static_cast<short>(-1))));
    for (const char* text : {"true", "1"}) EXPECT_TRUE(static_cast<bool>(Variant(text))) << text;
    for (const char* text : {"True", "yes", "0", "", " 1", "TRUE"}) EXPECT_FALSE(static_cast<bool>(Variant(text))) << text;
    EXPECT_EQ(refusedOperation([] { (void)static_cast<bool>(Variant(1.0)); }), "Zel::Variant::operator bool");
    EXPECT_EQ(refusedOperation([] { (void)static_cast<bool>(Variant::makeMap()); }), "Zel::Variant::operator bool");
}

TEST(VariantConversion, ShortKeepsTheLowSixteenBits) {
    EXPECT_EQ(static_cast<short>(Variant(70000)), static_cast<short>(70000 - 65536));
    EXPECT_EQ(static_cast<short>(Variant(std::int64_t{0x123456789})), static_cast<short>(0x6789));
    EXPECT_EQ(static_cast<short>(Variant(-2.9)), -2);
    EXPECT_EQ(static_cast<short>(Variant(65537.7f)), 1);
    EXPECT_EQ(static_cast<short>(Variant(1e20)), static_cast<short>(0)); // 1e20 is a multiple of 65536
    EXPECT_EQ(static_cast<short>(Variant(true)), 1);
    EXPECT_EQ(refusedOperation([] { (void)static_cast<short>(Variant("1")); }), "Zel::Variant::operator short");
}

TEST(VariantConversion, IntReadsStringsLikeStoi) {
    EXPECT_EQ(static_cast<int>(Variant("42abc")), 42);
    EXPECT_EQ(static_cast<int>(Variant("")), 0);
    EXPECT_EQ(static_cast<int>(Variant("  -17")), -17);
    EXPECT_EQ(static_cast<int>(Variant("+8")), 8);
    EXPECT_EQ(static_cast<int>(Variant(static_cast<short>(-3))), -3);
    EXPECT_EQ(static_cast<unsigned int>(Variant(-1)), 0xFFFFFFFFu);
    try {
        (void)static_cast<int>(Variant("abc"));
        ADD_FAILURE();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "invalid stoi argument");
    }
    try {
        (void)static_cast<int>(Variant("2147483648"));
        ADD_FAILURE();
    } catch (const std::out_of_range& error) {
        EXPECT_STREQ(error.what(), "stoi argument out of range");
    }
    for (const Variant& refused : {Variant(std::int64_t{1}), Variant(1.0), Variant(1.0f)}) {
        EXPECT_EQ(refusedOperation([&] { (void)static_cast<int>(refused); }), "Zel::Variant::operator int");
        EXPECT_EQ(refusedOperation([&] { (void)static_cast<unsigned int>(refused); }), "Zel::Variant::operator int");
    }
}

TEST(VariantConversion, Int64) {
    EXPECT_EQ(static_cast<std::int64_t>(Variant(-5)), -5);
    EXPECT_EQ(static_cast<std::int64_t>(Variant(static_cast<short>(-5))), -5);
    EXPECT_EQ(static_cast<std::int64_t>(Variant(std::int64_t{1} << 50)), std::int64_t{1} << 50);
    for (const Variant& refused : {Variant("5"), Variant(1.0), Variant(1.0f)}) {
        EXPECT_EQ(refusedOperation([&] { (void)static_cast<std::int64_t>(refused); }), "Zel::Variant::operator __int64");
    }
}

TEST(VariantConversion, FloatingPointRefusesWhatMayNotFit) {
    EXPECT_EQ(static_cast<double>(Variant(3)), 3.0);
    EXPECT_EQ(static_cast<double>(Variant(0.5f)), 0.5);
    EXPECT_EQ(static_cast<float>(Variant(static_cast<short>(7))), 7.0f);
    EXPECT_EQ(refusedOperation([] { (void)static_cast<double>(Variant(std::int64_t{1})); }), "Zel::Variant::operator double");
    EXPECT_EQ(refusedOperation([] { (void)static_cast<double>(Variant("1")); }), "Zel::Variant::operator double");
    for (const Variant& refused : {Variant(1), Variant(std::int64_t{1}), Variant(1.0)}) {
        EXPECT_EQ(refusedOperation([&] { (void)static_cast<float>(refused); }), "Zel::Variant::operator float");
    }
}

TEST(VariantConversion, DatesTimesAndTimestamps) {
    EXPECT_EQ(static_cast<Zel::Date>(Variant("2024-03-05")), Zel::Date(2024, 3, 5));
    EXPECT_TRUE(static_cast<Zel::Date>(Variant("2024-13-05")).isNull());
    EXPECT_TRUE(static_cast<Zel::Date>(Variant()).isNull());
    EXPECT_THROW((void)static_cast<Zel::Date>(Variant("March")), Zel::ArgumentException);
    EXPECT_EQ(static_cast<Zel::DateTime>(Variant("2024-03-05 07:08:09")),
              Zel::DateTime(Zel::Date(2024, 3, 5), Zel::Time(7, 8, 9)));
    EXPECT_TRUE(static_cast<Zel::DateTime>(Variant()).isNull());
    EXPECT_TRUE(static_cast<Zel::Time>(Variant()).isNull());
    EXPECT_EQ(static_cast<Zel::Time>(Variant(Zel::Time(1, 2, 3))), Zel::Time(1, 2, 3));
    EXPECT_EQ(refusedOperation([] { (void)static_cast<Zel::Time>(Variant("01:02:03")); }),
              "Zel::Variant::operator class Zel::Time");
    EXPECT_EQ(refusedOperation([] { (void)static_cast<Zel::Date>(Variant(1)); }),
              "Zel::Variant::operator class Zel::Date");
    EXPECT_EQ(refusedOperation([] { (void)static_cast<Zel::DateTime>(Variant(Zel::Date(2024, 1, 1))); }),
              "Zel::Variant::operator class Zel::DateTime");
    Variant date = Zel::Date(2024, 3, 5);
    date.date() = Zel::Date(2025, 1, 2);
    EXPECT_EQ(static_cast<std::string>(date), "2025-01-02");
    EXPECT_EQ(refusedOperation([] { (void)Variant(1).date(); }), "Zel::Variant::date");
    EXPECT_EQ(refusedOperation([] { (void)Variant(1).dateTime(); }), "Zel::Variant::dateTime");
}

TEST(VariantConversion, RefusalLeavesTheVariantUnchanged) {
    Variant value = "abc";
    EXPECT_THROW((void)static_cast<int>(value), std::invalid_argument);
    EXPECT_THROW(value.push_back(1), Zel::VariantInvalidOperationException);
    EXPECT_THROW(value.setAt("k", 1), Zel::VariantInvalidOperationException);
    EXPECT_EQ(value.type(), Variant::Type::String);
    EXPECT_EQ(static_cast<std::string>(value), "abc");
}

} // namespace
