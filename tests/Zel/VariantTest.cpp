#include <Zel/Variant.h>

#include <Zel/Json/Json.h>
#include <Zel/VariantInvalidOperationException.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <thread>
#include <vector>

namespace {

using Zel::Variant;
using Type = Zel::Variant::Type;

std::string failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no exception";
}

TEST(Variant, IsThreeWords) {
    EXPECT_EQ(sizeof(Variant), 24u);
}

TEST(Variant, AssignmentPicksTheTagOfTheArgument) {
    const std::pair<Variant, Type> cases[] = {
        {Variant(true), Type::Bool},
        {Variant(static_cast<unsigned char>(1)), Type::Byte},
        {Variant(static_cast<short>(1)), Type::Short},
        {Variant(static_cast<unsigned short>(65535)), Type::Int32},
        {Variant(1), Type::Int32},
        {Variant(4000000000u), Type::Int64},
        {Variant(std::int64_t{1}), Type::Int64},
        {Variant(1LL), Type::Int64},
        {Variant(1.0f), Type::Float},
        {Variant(1.0), Type::Double},
        {Variant(Zel::Time(0, 0, 0)), Type::Time},
        {Variant(Zel::Date(2024, 1, 1)), Type::Date},
        {Variant(Zel::DateTime(Zel::Date(2024, 1, 1), Zel::Time(1, 2, 3))), Type::Timestamp},
        {Variant(std::string("s")), Type::String},
        {Variant(std::string_view("s")), Type::String},
        {Variant("s"), Type::String},
        {Variant(nullptr), Type::Null},
    };
    for (const auto& [value, type] : cases) {
        SCOPED_TRACE(Variant::typeToString(type));
        EXPECT_EQ(value.type(), type);
        Variant assigned = Variant::makeMap(); // assignment releases a payload first
        assigned = value;
        EXPECT_EQ(assigned.type(), type);
    }
    EXPECT_EQ(static_cast<std::int64_t>(Variant(4000000000u)), 4000000000LL);
    EXPECT_EQ(static_cast<int>(Variant(static_cast<unsigned short>(65535))), 65535);
}

TEST(Variant, NullDatesAndTimesMakeANullVariant) {
    EXPECT_TRUE(Variant(Zel::Date()).isNull());
    EXPECT_TRUE(Variant(Zel::Time()).isNull());
    EXPECT_TRUE(Variant(Zel::DateTime()).isNull());
    Variant value = 5;
    value = Zel::Date();
    EXPECT_TRUE(value.isNull());
    value = Zel::Time(0, 0, 0); // midnight is a time, not null
    EXPECT_EQ(value.type(), Type::Time);
}

TEST(Variant, TypeNames) {
    const char* names[] = {"null", "bool", "byte", "short", "int32", "int64", "float", "double",
                           "time", "date", "string", "11", "binary", "timestamp", "map", "vector"};
    for (int tag = 0; tag < 16; ++tag) EXPECT_EQ(Variant::typeToString(static_cast<Type>(tag)), names[tag]);
}

TEST(Variant, EmptyValuesOfEachType) {
    EXPECT_EQ(Variant(Type::Map).size(), 0u);
    EXPECT_TRUE(Variant(Type(14)).empty());
    const Variant map = Variant::makeMap();
    EXPECT_TRUE(map.begin() == map.end());
    EXPECT_TRUE(Variant::makeVector().empty());
    EXPECT_TRUE(Variant(Type::String).empty());
    EXPECT_EQ(Variant(Type::Binary).binary().size(), 0);
    EXPECT_EQ(static_cast<int>(Variant(Type::Int32)), 0);
    EXPECT_EQ(Variant(Type::Time).time(), Zel::Time(0, 0, 0));
    EXPECT_EQ(Variant(Type::Reserved).type(), Type::Reserved);
    const Variant reserved(Type::Reserved);
    Variant copy = reserved; // tag 11 holds no payload: copying must not touch one
    EXPECT_EQ(copy.type(), Type::Reserved);
    EXPECT_THROW(Variant(static_cast<Type>(42)), Zel::GenericException);
}

TEST(Variant, SetTypeResetsWithoutConverting) {
    Variant value = "text";
    value.setType(Type::String);
    EXPECT_EQ(static_cast<std::string>(value), "text");
    value.setType(Type::Int32);
    EXPECT_EQ(value.type(), Type::Int32);
    EXPECT_EQ(static_cast<int>(value), 0);
    value.setType(Type::Vector).push_back(1);
    EXPECT_EQ(value.size(), 1u);
    value.clear();
    EXPECT_TRUE(value.isNull());
}

TEST(Variant, MovingLeavesTheSourceNull) {
    Variant source = "payload";
    Variant target(std::move(source));
    EXPECT_TRUE(source.isNull()); // NOLINT(bugprone-use-after-move)
    source = target.rvalue();
    EXPECT_TRUE(target.isNull()); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(static_cast<std::string>(source), "payload");
}

TEST(Variant, SelfAssignmentKeepsThePayload) {
    Variant value = "kept";
    Variant& alias = value;
    value = alias;
    EXPECT_EQ(static_cast<std::string>(value), "kept");
}

TEST(Variant, StringAssignmentWritesIntoTheSharedPayload) {
    Variant source = "before";
    Variant copy = source;
    copy = "after";
    EXPECT_EQ(static_cast<std::string>(source), "after");
    copy = std::string(100, 'x');
    EXPECT_EQ(static_cast<std::string>(source), std::string(100, 'x'));
}

TEST(Variant, EqualityRules) {
    EXPECT_EQ(Variant(), Variant());
    EXPECT_NE(Variant(1), Variant(std::int64_t{1}));
    EXPECT_NE(Variant(1), Variant(1.0));
    EXPECT_EQ(Variant(1.5), Variant(1.5));
    EXPECT_EQ(Variant(0.0), Variant(-0.0));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_NE(Variant(nan), Variant(nan));
    EXPECT_NE(Variant(std::numeric_limits<float>::quiet_NaN()), Variant(std::numeric_limits<float>::quiet_NaN()));
    EXPECT_EQ(Variant("a"), Variant(std::string("a")));
    EXPECT_NE(Variant("a"), Variant(std::string("a\0", 2)));
    EXPECT_EQ(Variant(Zel::Date(2024, 3, 5)), Variant(Zel::Date(2024, 3, 5)));
    EXPECT_NE(Variant(true), Variant(false));

    Variant a = Zel::Json::parse(R"({"x":1,"y":{"z":"t"}})");
    Variant b = Variant::makeMap();
    Variant inner = Variant::makeMap();
    inner.setAt("z", "t");
    b.setAt("y", inner).setAt("x", 1);
    EXPECT_EQ(a, b);
    b.setAt("x", 2);
    EXPECT_NE(a, b);
}

TEST(Variant, UncomparableTypesThrow) {
    EXPECT_EQ(failureOf([] { (void)(Variant::makeVector() == Variant::makeVector()); }),
              "Variant: Invalid operation | operation=Zel::Variant::operator == | type=vector | value=[]");
    EXPECT_THROW((void)(Variant(Zel::LongBinary()) == Variant(Zel::LongBinary())), Zel::VariantInvalidOperationException);
    EXPECT_THROW((void)(Variant(Type::Reserved) == Variant(Type::Reserved)), Zel::VariantInvalidOperationException);
    // A vector inside maps is reached entry by entry.
    const Variant a = Zel::Json::parse(R"({"list":[1]})");
    EXPECT_THROW((void)(a == a), Zel::VariantInvalidOperationException);
    // Different tags never get that far.
    EXPECT_FALSE(Variant::makeVector() == Variant());
}

TEST(Variant, FailureMessageShowsTheValueAsJsonCutTo1000Characters) {
    const Variant longText = std::string(5000, 'a');
    const std::string message = failureOf([&] { (void)static_cast<double>(longText); });
    const std::string prefix = "Variant: Invalid operation | operation=Zel::Variant::operator double | type=string | value=";
    ASSERT_EQ(message.substr(0, prefix.size()), prefix);
    EXPECT_EQ(message.size(), prefix.size() + 1000);
    EXPECT_EQ(message.substr(prefix.size(), 3), "\"aa");
    // Values without a JSON form are still shown.
    EXPECT_EQ(failureOf([] { (void)static_cast<int>(Variant(Zel::Date(2024, 3, 5))); }),
              "Variant: Invalid operation | operation=Zel::Variant::operator int | type=date | value=2024-03-05");
}

TEST(Variant, RawData) {
    std::int64_t size = -1;
    EXPECT_EQ(Variant()._rawData(&size), nullptr);
    EXPECT_EQ(size, 0);
    const std::pair<Variant, std::int64_t> sizes[] = {
        {Variant(true), 1}, {Variant(static_cast<unsigned char>(1)), 1}, {Variant(static_cast<short>(1)), 2},
        {Variant(1), 4}, {Variant(1.0f), 4}, {Variant(Zel::Time(1, 2, 3)), 4}, {Variant(Zel::Date(1, 2, 3)), 4},
        {Variant(std::int64_t{1}), 8}, {Variant(1.0), 8},
        {Variant(Zel::DateTime(Zel::Date(2000, 1, 1), Zel::Time(1, 1, 1))), 8}, {Variant("abc"), 3},
        {Variant(Zel::LongBinary("\0\1", 2)), 2},
    };
    for (const auto& [value, expected] : sizes) {
        SCOPED_TRACE(Variant::typeToString(value.type()));
        value._rawData(&size);
        EXPECT_EQ(size, expected);
    }
    const Variant number = 0x01020304;
    EXPECT_EQ(*static_cast<const std::int32_t*>(number._rawData(&size)), 0x01020304);
    EXPECT_EQ(std::string(static_cast<const char*>(Variant("abc")._rawData(&size)), 3), "abc");
    EXPECT_EQ(failureOf([] { Variant::makeMap()._rawData(nullptr); }),
              "Variant: Invalid operation | operation=Zel::Variant::_rawData | type=map | value={}");
    EXPECT_THROW(Variant::makeVector()._rawData(nullptr), Zel::VariantInvalidOperationException);
    EXPECT_THROW(Variant(Type::Reserved)._rawData(nullptr), Zel::VariantInvalidOperationException);
}

TEST(Variant, SharedPayloadsSurviveConcurrentCopiesAndReleases) {
    Variant shared = Zel::Json::parse(R"({"list":[1,2,3],"text":"some longer text that is not inline"})");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([shared] {
            for (int i = 0; i < 20000; ++i) {
                Variant copy = shared;
                Variant text = copy["text"];
                Variant grown = copy;
                grown.setAt("i", i); // clones: the shared payload stays as it was
                if (text.empty() || grown.size() != 3) std::abort();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(shared.size(), 2u);
    EXPECT_EQ(shared.toJson(), R"({"list":[1,2,3],"text":"some longer text that is not inline"})");
}

} // namespace
