#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <limits>

namespace {

using Zel::Variant;

TEST(JsonWriter, WritesScalars) {
    const std::pair<Variant, std::string> cases[] = {
        {Variant(), "null"},
        {Variant(true), "true"},
        {Variant(false), "false"},
        {Variant(static_cast<unsigned char>(200)), "200"},
        {Variant(static_cast<short>(-7)), "-7"},
        {Variant(-2147483647 - 1), "-2147483648"},
        {Variant(std::int64_t{-9223372036854775807LL - 1}), "-9223372036854775808"},
        {Variant(0.1), "0.1"},
        {Variant(1e300), "1e+300"},
        {Variant(2.0), "2.0"},
        {Variant(-0.0), "-0.0"},
        {Variant(123456789012.0), "123456789012.0"},
        // A float is widened first, so it shows the double's digits.
        {Variant(0.1f), "0.10000000149011612"},
        {Variant(std::numeric_limits<double>::quiet_NaN()), "null"},
        {Variant(std::numeric_limits<double>::infinity()), "null"},
    };
    for (const auto& [value, json] : cases) {
        SCOPED_TRACE(json);
        EXPECT_EQ(value.toJson(), json);
    }
}

TEST(JsonWriter, WritesContainersCompactlyInKeyOrder) {
    Variant map = Variant::makeMap();
    map.setAt("b", 1).setAt("a", "x");
    Variant list = Variant::makeVector();
    list.push_back(map).push_back(Variant()).push_back(Variant::makeVector()).push_back(Variant::makeMap());
    EXPECT_EQ(map.toJson(), R"({"a":"x","b":1})");
    EXPECT_EQ(list.toJson(), R"([{"a":"x","b":1},null,[],{}])");
    Variant keyed = Variant::makeMap();
    keyed.setAt("quote\"key", 1);
    EXPECT_EQ(keyed.toJson(), R"({"quote\"key":1})");
}

TEST(JsonWriter, RefusesTypesWithoutAJsonForm) {
    Variant dated = Variant::makeMap();
    dated.setAt("when", Zel::Date(2024, 3, 5));
    const std::pair<Variant, std::string> cases[] = {
        {Variant(Zel::Date(2024, 3, 5)), "Unsupported Variant type:date"},
        {Variant(Zel::Time(7, 8, 9)), "Unsupported Variant type:time"},
        {Variant(Zel::DateTime(Zel::Date(2024, 3, 5), Zel::Time(7, 8, 9))),
         "Unsupported Variant type:timestamp"},
        {Variant(Zel::LongBinary("ab", 2)), "Unsupported Variant type:binary"},
        {Variant(Variant::Type::Reserved), "Unsupported Variant type:11"},
        {dated, "Unsupported Variant type:date"},
    };
    for (const auto& [value, message] : cases) {
        SCOPED_TRACE(message);
        try {
            (void)value.toJson();
            ADD_FAILURE() << "written";
        } catch (const Zel::GenericException& error) {
            EXPECT_EQ(std::string(error.what()), message);
        }
    }
}

TEST(JsonWriter, EncodesDatesAndTimestamps) {
    EXPECT_EQ(Zel::Json::encode(Zel::Date(2024, 3, 5)), "\"2024-03-05\"");
    EXPECT_EQ(Zel::Json::encode(Zel::Date(9, 9, 1)), "\"9-09-01\"");
    EXPECT_EQ(Zel::Json::encode(Zel::Date()), "null");
    EXPECT_EQ(Zel::Json::encode(Zel::DateTime(Zel::Date(2024, 3, 5), Zel::Time(7, 8, 9))),
              "\"2024-03-05 07:08:09\"");
    EXPECT_EQ(Zel::Json::encode(Zel::DateTime()), "null");
}

TEST(JsonWriter, RoundTripsTheSampleDocuments) {
    for (const char* name :
         {"twitter.json", "citm_catalog.json", "canada.json", "github_events.json", "mesh.json"}) {
        SCOPED_TRACE(name);
        std::ifstream in(std::string(ZEL_DATA_DIR) + "/json/" + name, std::ios::binary);
        ASSERT_TRUE(in) << "sample missing under " << ZEL_DATA_DIR;
        const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        const std::string once = Zel::Json::parse(text).toJson();
        EXPECT_EQ(Zel::Json::parse(once).toJson(), once);
    }
}

} // namespace
