#include <Zel/Variant.h>

#include <Zel/Json/Json.h>
#include <Zel/VariantInvalidOperationException.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>

namespace {

using Zel::Variant;
using ::testing::ElementsAre;
using ::testing::Pair;

std::string failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "no exception";
}

std::vector<std::string> keysOf(const Variant& map) {
    std::vector<std::string> keys;
    for (const auto& entry : map) keys.push_back(entry.key());
    return keys;
}

TEST(VariantMap, SetAtInsertsOrReplacesInByteOrder) {
    Variant map = Variant::makeMap();
    map.setAt("b", 1).setAt("a", 2).setAt("B", 3).setAt("a", 4).setAt("", 5);
    EXPECT_EQ(map.size(), 4u);
    EXPECT_THAT(keysOf(map), ElementsAre("", "B", "a", "b"));
    EXPECT_EQ(map["a"], Variant(4));
    EXPECT_EQ(map.at("b"), Variant(1));
    EXPECT_THAT(map.toMap<int>(), ElementsAre(Pair("", 5), Pair("B", 3), Pair("a", 4), Pair("b", 1)));
}

TEST(VariantMap, LookupOperations) {
    Variant map = Zel::Json::parse(R"({"present":1})");
    EXPECT_TRUE(map.contains("present"));
    EXPECT_FALSE(map.contains("absent"));
    Variant out = "untouched";
    EXPECT_FALSE(map.contains("absent", out));
    EXPECT_EQ(static_cast<std::string>(out), "untouched");
    EXPECT_TRUE(map.contains("present", out));
    EXPECT_EQ(out, Variant(1));
    EXPECT_EQ(map.find("absent"), nullptr);
    ASSERT_NE(map.find("present"), nullptr);
    *map.find("present") = 7;
    EXPECT_EQ(map["present"], Variant(7));
    EXPECT_EQ(failureOf([&] { (void)map["absent"]; }), "Variant: key not set | key=absent");
    EXPECT_EQ(failureOf([&] { (void)map.at("absent"); }), "Variant: key not set | key=absent");
    map.erase("present");
    map.erase("absent"); // no error
    EXPECT_TRUE(map.empty());
}

TEST(VariantMap, NonMapsRefuseMapOperations) {
    const std::pair<std::function<void(Variant&)>, std::string> operations[] = {
        {[](Variant& v) { v.setAt("k", 1); }, "Zel::Variant::setAt"},
        {[](Variant& v) { (void)v.find("k"); }, "Zel::Variant::find"},
        {[](Variant& v) { (void)v.contains("k"); }, "Zel::Variant::contains"},
        {[](Variant& v) { v.erase("k"); }, "Zel::Variant::erase"},
        {[](Variant& v) { (void)v.toMap(); }, "Zel::Variant::toMap"},
        {[](Variant& v) { (void)v.size(); }, "Zel::Variant::size"},
    };
    for (const auto& [operation, name] : operations) {
        SCOPED_TRACE(name);
        Variant null;
        EXPECT_EQ(failureOf([&] { operation(null); }),
                  "Variant: Invalid operation | operation=" + name + " | type=null | value=null");
        Variant text = "t";
        EXPECT_EQ(failureOf([&] { operation(text); }),
                  "Variant: Invalid operation | operation=" + name + " | type=string | value=\"t\"");
        EXPECT_EQ(static_cast<std::string>(text), "t");
    }
}

TEST(VariantMap, CopiesAreIndependentAfterAChange) {
    Variant source = Zel::Json::parse(R"({"inner":{"x":1},"list":[1]})");
    Variant copy = source;
    copy.setAt("added", true);
    EXPECT_FALSE(source.contains("added"));
    EXPECT_TRUE(copy.contains("added"));
    // Changing a nested map through a copy of it leaves the original nested map alone.
    Variant inner = copy["inner"];
    inner.setAt("x", 2);
    EXPECT_EQ(source["inner"]["x"], Variant(1));
    Variant erased = source;
    erased.erase("inner");
    EXPECT_TRUE(source.contains("inner"));
    Variant list = source["list"];
    list.push_back(2);
    EXPECT_EQ(source["list"].size(), 1u);
}

TEST(VariantMap, ManyRandomKeysStayOrderedAndFindable) {
    std::mt19937 random(7);
    std::map<std::string, int> expected;
    Variant map = Variant::makeMap();
    for (int i = 0; i < 20000; ++i) {
        std::string key = std::to_string(random() % 50000);
        expected[key] = i;
        map.setAt(key, i);
        if (i % 3 == 0) {
            const std::string gone = std::to_string(random() % 50000);
            expected.erase(gone);
            map.erase(gone);
        }
    }
    ASSERT_EQ(map.size(), expected.size());
    auto it = expected.begin();
    for (const auto& entry : map) {
        ASSERT_EQ(entry.key(), it->first);
        ASSERT_EQ(static_cast<int>(entry.value()), it->second);
        ++it;
    }
    for (const auto& [key, value] : expected) ASSERT_EQ(static_cast<int>(map[key]), value) << key;
    Variant copy = map;
    copy.setAt("extra", 1);
    EXPECT_EQ(copy.size(), map.size() + 1);
    copy.erase("extra");
    EXPECT_EQ(copy, map);
    EXPECT_EQ(Zel::Json::parse(map.toJson()), map);
}

TEST(VariantVector, PushIndexEraseAndContains) {
    Variant list = Variant::makeVector();
    Variant moved = "moved";
    list.push_back(1).push_back(std::move(moved)).push_back(Variant(2.5));
    EXPECT_TRUE(moved.isNull()); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(list.size(), 3u);
    EXPECT_EQ(list[1], Variant("moved"));
    EXPECT_TRUE(list.contains(Variant(2.5)));
    EXPECT_FALSE(list.contains(Variant(std::int64_t{1})));
    list.erase(0);
    EXPECT_EQ(list.toJson(), R"(["moved",2.5])");
    EXPECT_THAT(list.toVector<std::string>(), ElementsAre("moved", "2.5"));
    // Appending an element of the same vector must copy it before the storage moves.
    for (int i = 0; i < 100; ++i) list.push_back(list[0]);
    EXPECT_EQ(list[101], Variant("moved"));
}

TEST(VariantVector, IndexOutsideTheVector) {
    const Variant list = Zel::Json::parse("[0,1,2,3,4]");
    EXPECT_EQ(failureOf([&] { (void)list[5]; }), "Variant: index not set | index=5");
    EXPECT_EQ(failureOf([&] { (void)list[-1]; }), "Variant: index not set | index=-1");
    EXPECT_EQ(failureOf([] { (void)Variant::makeMap()[0]; }),
              "Variant: Invalid operation | operation=Zel::Variant::operator [] | type=map | value={}");
    EXPECT_EQ(failureOf([] { Variant().push_back(1); }),
              "Variant: Invalid operation | operation=Zel::Variant::push_back | type=null | value=null");
    EXPECT_EQ(failureOf([] { (void)Variant(1).toVector(); }),
              "Variant: Invalid operation | operation=Zel::Variant::toVector | type=int32 | value=1");
}

TEST(VariantVector, CopyOnWriteForVectors) {
    Variant source = Zel::Json::parse("[1,2,3]");
    Variant copy = source;
    copy.erase(0);
    copy.push_back(4);
    EXPECT_EQ(source.toJson(), "[1,2,3]");
    EXPECT_EQ(copy.toJson(), "[2,3,4]");
}

TEST(VariantIteration, VectorsYieldIndexOrderAndEmptyKeys) {
    const Variant list = Zel::Json::parse(R"([10,"x",null])");
    std::vector<std::string> values;
    for (const auto& element : list) {
        EXPECT_EQ(element.key(), "");
        values.push_back(element.value().toJson());
    }
    EXPECT_THAT(values, ElementsAre("10", "\"x\"", "null"));
    auto first = list.begin();
    auto second = list.begin();
    EXPECT_TRUE(first == second);
    ++second;
    EXPECT_FALSE(first == second);
}

TEST(VariantIteration, OtherTypesCannotBeIterated) {
    for (const Variant& value : {Variant(), Variant(1), Variant("s")}) {
        const std::string name = Variant::typeToString(value.type());
        EXPECT_EQ(failureOf([&] { (void)value.begin(); }), "Variant: You cannot iterate the type '" + name + "'");
    }
}

TEST(VariantSize, EmptyAndSizeByType) {
    EXPECT_TRUE(Variant().empty());
    EXPECT_TRUE(Variant("").empty());
    EXPECT_FALSE(Variant("x").empty());
    EXPECT_EQ(failureOf([] { (void)Variant(1).empty(); }),
              "Variant: Invalid operation | operation=Zel::Variant::empty | type=int32 | value=1");
    EXPECT_EQ(failureOf([] { (void)Variant("abc").size(); }),
              "Variant: Invalid operation | operation=Zel::Variant::size | type=string | value=\"abc\"");
}

TEST(VariantBinary, NonConstAccessUnsharesThePayload) {
    Variant source = Zel::LongBinary("abc", 3);
    Variant copy = source;
    copy.binary().data()[0] = 'X';
    EXPECT_EQ(static_cast<std::string>(source), "abc");
    EXPECT_EQ(static_cast<std::string>(copy), "Xbc");
    EXPECT_EQ(failureOf([] { (void)Variant(1).binary(); }),
              "Variant: Invalid operation | operation=Zel::Variant::binary | type=int32 | value=1");
}

} // namespace
