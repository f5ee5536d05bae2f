#include <Zel/Json/Array.h>
#include <Zel/Json/Json.h>
#include <Zel/Json/Object.h>

#include <gtest/gtest.h>

namespace {

struct Point final : Zel::Json::IJsonable {
    int x = 1;
    int y = 2;
    std::string toJson() const override { return Zel::Json::Object().add("x", x).add("y", y); }
};

TEST(JsonObject, AppendsMembersInCallOrder) {
    Zel::Json::Object object;
    EXPECT_TRUE(object.empty());
    EXPECT_EQ(static_cast<std::string>(object), "{}");
    object.addJson("b", "1").addJson("a", "[true]").add("p", Point());
    EXPECT_FALSE(object.empty());
    EXPECT_EQ(object.json(), R"({"b":1,"a":[true],"p":{"x":1,"y":2}})");
    object.clear();
    EXPECT_EQ(object.json(), "{}");
}

TEST(JsonObject, ContinuesFromExistingText) {
    Zel::Json::Object object(R"({"result":0})");
    object.addJson("data", "null");
    EXPECT_EQ(object.json(), R"({"result":0,"data":null})");
    EXPECT_EQ(Zel::Json::parse(object.json())["result"], Zel::Variant(0));
}

TEST(JsonArray, AppendsElements) {
    Zel::Json::Array array;
    EXPECT_TRUE(array.empty());
    array.addJson("1").add(Zel::Variant("two")).add(Point());
    EXPECT_EQ(array.json(), R"([1,"two",{"x":1,"y":2}])");
    array.clear();
    EXPECT_EQ(static_cast<std::string>(array), "[]");
}

} // namespace
