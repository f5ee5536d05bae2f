#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <Zel/Variant.h>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

// The writer's output checked against plain reference spellings: std::to_chars for numbers, a
// byte-by-byte escaper for strings and a recursive walk for containers. The writer itself takes
// word-at-a-time, table and stack shortcuts; these tests pin that the shortcuts change nothing.

namespace {

using Zel::Variant;

std::string referenceDouble(double value) {
    if (!std::isfinite(value)) return "null";
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value);
    std::string spelled(text, result.ptr);
    if (spelled.find_first_of(".e") == std::string::npos) spelled += ".0";
    return spelled;
}

std::string referenceString(const std::string& text) {
    static const std::map<char, std::string> named = {{'"', "\\\""}, {'\\', "\\\\"}, {'\b', "\\b"},
                                                      {'\t', "\\t"}, {'\n', "\\n"},  {'\f', "\\f"},
                                                      {'\r', "\\r"}};
    static const char hex[] = "0123456789ABCDEF";
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (const auto found = named.find(c); found != named.end()) {
            out += found->second;
        } else if (byte < 0x20) {
            out += "\\u00";
            out += hex[byte >> 4];
            out += hex[byte & 0xF];
        } else {
            out += c;
        }
    }
    return out + "\"";
}

std::string referenceJson(const Variant& value) {
    switch (value.type()) {
    case Variant::Type::Null:
        return "null";
    case Variant::Type::Bool:
        return static_cast<bool>(value) ? "true" : "false";
    case Variant::Type::Byte:
    case Variant::Type::Short:
    case Variant::Type::Int32:
    case Variant::Type::Int64:
        return std::to_string(static_cast<std::int64_t>(value));
    case Variant::Type::Float:
        return referenceDouble(static_cast<double>(static_cast<float>(value)));
    case Variant::Type::Double:
        return referenceDouble(static_cast<double>(value));
    case Variant::Type::String:
        return referenceString(static_cast<std::string>(value));
    case Variant::Type::Map: {
        std::string out = "{";
        for (const auto& entry : value) {
            if (out.size() > 1) out += ',';
            out += referenceString(entry.key()) + ":" + referenceJson(entry.value());
        }
        return out + "}";
    }
    case Variant::Type::Vector: {
        std::string out = "[";
        for (const auto& element : value) {
            if (out.size() > 1) out += ',';
            out += referenceJson(element.value());
        }
        return out + "]";
    }
    default:
        ADD_FAILURE() << "no reference for the type";
        return {};
    }
}

TEST(JsonWriterOutput, DoublesMatchTheShortestRoundTripForm) {
    // Random bit patterns reach every exponent, subnormals, NaNs and infinities.
    std::mt19937_64 random(20240611);
    for (int i = 0; i < 200'000; ++i) {
        const double value = std::bit_cast<double>(random());
        ASSERT_EQ(Variant(value).toJson(), referenceDouble(value)) << std::hexfloat << value;
    }
}

TEST(JsonWriterOutput, DoublesAtTheFormBoundariesMatch) {
    // Where the shorter of fixed and scientific flips, where a whole number prints its exact value
    // rather than its shortest digits, the binade edges and the smallest and largest magnitudes.
    std::vector<double> values = {0.0,
                                  -0.0,
                                  std::numeric_limits<double>::min(),
                                  std::numeric_limits<double>::denorm_min(),
                                  std::numeric_limits<double>::max(),
                                  std::numeric_limits<double>::lowest(),
                                  std::numeric_limits<double>::epsilon(),
                                  9007199254740992.0,
                                  9007199254740993.0 * 2,
                                  123456789012345680000.0,
                                  12300000000000001048576.0,
                                  0.1 + 0.2};
    for (int exponent = -325; exponent <= 308; ++exponent) {
        for (const char* digits : {"1", "15", "123", "9999999", "12345678901234567", "5", "25"}) {
            values.push_back(
                std::strtod((std::string(digits) + "e" + std::to_string(exponent)).c_str(), nullptr));
        }
    }
    for (int power = -1074; power <= 1023; ++power) {
        for (const double significand : {1.0, 1.5, 3.0, 1.9999999999999998}) {
            values.push_back(std::ldexp(significand, power));
        }
    }
    for (std::int64_t whole = 1; whole < 5'000'000; whole = whole * 3 + 1) {
        values.push_back(static_cast<double>(whole));
        values.push_back(static_cast<double>(whole) * 1e5);
        values.push_back(static_cast<double>(whole) / 1e4);
    }
    for (const double value : values) {
        for (const double signed_ : {value, -value}) {
            ASSERT_EQ(Variant(signed_).toJson(), referenceDouble(signed_)) << std::hexfloat << signed_;
        }
    }
}

TEST(JsonWriterOutput, FloatsAreWrittenWithTheDoublesDigits) {
    std::mt19937 random(7);
    for (int i = 0; i < 50'000; ++i) {
        const float value = std::bit_cast<float>(static_cast<std::uint32_t>(random()));
        ASSERT_EQ(Variant(value).toJson(), referenceDouble(static_cast<double>(value))) << value;
    }
}

TEST(JsonWriterOutput, IntegersAtEveryDigitCount) {
    std::vector<std::int64_t> values = {0, std::numeric_limits<std::int64_t>::max(),
                                        std::numeric_limits<std::int64_t>::min()};
    for (std::int64_t power = 1; power <= std::numeric_limits<std::int64_t>::max() / 10; power *= 10) {
        for (const std::int64_t near : {power - 1, power, power + 1, 5 * power, 9 * power + power - 1}) {
            values.push_back(near);
            values.push_back(-near);
        }
    }
    for (const std::int64_t value : values) {
        SCOPED_TRACE(value);
        EXPECT_EQ(Variant(value).toJson(), std::to_string(value));
        if (value >= std::numeric_limits<std::int32_t>::min() &&
            value <= std::numeric_limits<std::int32_t>::max())
            EXPECT_EQ(Variant(static_cast<int>(value)).toJson(), std::to_string(value));
    }
    // Random values of random lengths reach every digit in every place.
    std::mt19937_64 random(31);
    for (int i = 0; i < 200'000; ++i) {
        const auto value = static_cast<std::int64_t>(random() >> (random() % 64));
        ASSERT_EQ(Variant(value).toJson(), std::to_string(value));
        ASSERT_EQ(Variant(-value).toJson(), std::to_string(-value));
    }
    for (int value = 0; value < 256; ++value)
        EXPECT_EQ(Variant(static_cast<unsigned char>(value)).toJson(), std::to_string(value));
    for (const short value :
         {std::numeric_limits<short>::min(), short{-1}, std::numeric_limits<short>::max()})
        EXPECT_EQ(Variant(value).toJson(), std::to_string(value));
}

TEST(JsonWriterOutput, StringsOfEveryLengthWithAnEscapeAtEveryPlace) {
    // The copy runs in 16-byte blocks, two overlapping words and short words: each length from 0
    // to past two blocks, each with an escape at each place and in the last place of a block.
    for (const char special : {'"', '\\', '\n', '\x01', '\x1F', '\x7F', '\x80', '/'}) {
        for (std::size_t length = 0; length <= 40; ++length) {
            std::string text(length, 'x');
            for (std::size_t i = 0; i < length; ++i)
                text[i] = static_cast<char>('a' + i % 26);
            ASSERT_EQ(Variant(text).toJson(), referenceString(text)) << length;
            for (std::size_t at = 0; at < length; ++at) {
                std::string escaped = text;
                escaped[at] = special;
                SCOPED_TRACE(testing::Message() << "length " << length << " at " << at << " byte "
                                                << static_cast<int>(static_cast<unsigned char>(special)));
                ASSERT_EQ(Variant(escaped).toJson(), referenceString(escaped));
                Variant keyed = Variant::makeMap();
                keyed.setAt(escaped, 1);
                ASSERT_EQ(keyed.toJson(), "{" + referenceString(escaped) + ":1}");
            }
        }
    }
}

TEST(JsonWriterOutput, StringsOfRandomBytes) {
    std::mt19937 random(99);
    for (int i = 0; i < 20'000; ++i) {
        std::string text(random() % 300, '\0');
        // Mostly plain text, some control bytes, quotes, backslashes and high bytes.
        for (char& c : text) {
            const unsigned roll = random() % 100;
            c = static_cast<char>(roll < 80   ? 'a' + random() % 26
                                  : roll < 90 ? random() % 0x20
                                              : random() % 256);
        }
        ASSERT_EQ(Variant(text).toJson(), referenceString(text));
        ASSERT_EQ(Zel::Json::_encodeString(text), referenceString(text));
    }
}

// Containers of scalars of every type; at depth 0 scalars only. `containerOnly` forces a container.
Variant randomTree(std::mt19937& random, int depth, bool containerOnly = false) {
    const unsigned kind = containerOnly ? 9 + random() % 5 : random() % (depth > 0 ? 14 : 9);
    switch (kind) {
    case 0:
        return Variant();
    case 1:
        return Variant(random() % 2 == 0);
    case 2:
        return Variant(static_cast<int>(random()));
    case 3:
        return Variant(static_cast<std::int64_t>((std::uint64_t{random()} << 32) | random()));
    case 4:
        return Variant(std::bit_cast<double>((std::uint64_t{random()} << 32) | random()));
    case 5:
        return Variant(static_cast<double>(random() % 1000) / 8);
    case 6:
        return Variant(static_cast<unsigned char>(random()));
    case 7: {
        std::string text(random() % 40, 'q');
        for (char& c : text)
            c = static_cast<char>(random() % 128);
        return Variant(text);
    }
    case 8:
        return Variant(static_cast<float>(random() % 1000) / 3);
    case 9:
    case 10:
    case 11: {
        Variant map = Variant::makeMap();
        // Now and then more members than one chunk of the map holds.
        const unsigned count = depth <= 1 && random() % 10 == 0 ? 300 + random() % 600 : random() % 8;
        for (unsigned i = 0; i < count; ++i)
            map.setAt("k" + std::to_string(random() % (count * 2 + 1)), randomTree(random, depth - 1));
        return map;
    }
    default: {
        Variant vector = Variant::makeVector();
        const unsigned count = depth <= 1 && random() % 10 == 0 ? 100 + random() % 100 : random() % 8;
        for (unsigned i = 0; i < count; ++i)
            vector.push_back(randomTree(random, depth - 1));
        return vector;
    }
    }
}

TEST(JsonWriterOutput, RandomTreesMatchARecursiveWalk) {
    std::mt19937 random(4242);
    for (int i = 0; i < 2000; ++i) {
        const Variant tree = randomTree(random, 6, true);
        ASSERT_EQ(tree.toJson(), referenceJson(tree)) << "tree " << i;
    }
}

TEST(JsonWriterOutput, MapsSpreadOverManyChunksKeepKeyOrder) {
    // Inserting in descending order and erasing every third key leaves chunks of uneven sizes.
    Variant map = Variant::makeMap();
    for (int i = 3000; i > 0; --i)
        map.setAt("key" + std::to_string(i), i);
    for (int i = 3; i <= 3000; i += 3)
        map.erase("key" + std::to_string(i));
    EXPECT_EQ(map.toJson(), referenceJson(map));
    Variant outer = Variant::makeVector();
    outer.push_back(map).push_back(Variant::makeMap()).push_back(map);
    EXPECT_EQ(outer.toJson(), referenceJson(outer));
}

TEST(JsonWriterOutput, AWriterKeptByAThreadServesSmallAndLargeTextsInTurn) {
    // Texts above the copy-out size leave with the writer's buffer; the next ones must start clean
    // whatever size they have, and the earlier texts must stay intact.
    std::mt19937 random(5);
    Variant large = Variant::makeVector();
    for (int i = 0; i < 20'000; ++i)
        large.push_back("element " + std::to_string(i));
    Variant larger = Variant::makeVector();
    larger.push_back(large).push_back(large);
    const Variant small = randomTree(random, 2, true);
    const Variant* const order[] = {&large, &small, &larger, &small, &large};
    std::vector<std::string> kept;
    for (int round = 0; round < 3; ++round)
        for (const Variant* value : order)
            kept.push_back(value->toJson());
    // Checked only after all were written: a text spoilt by a later write shows here.
    for (std::size_t i = 0; i < kept.size(); ++i)
        EXPECT_EQ(kept[i], referenceJson(*order[i % std::size(order)])) << "text " << i;
}

TEST(JsonWriterOutput, AFailedWriteLeavesTheNextOneClean) {
    Variant bad = Variant::makeVector();
    Variant inner = Variant::makeMap();
    inner.setAt("a", 1).setAt("b", Zel::Date(2024, 1, 2));
    bad.push_back("x").push_back(inner);
    EXPECT_THROW((void)bad.toJson(), Zel::GenericException);
    Variant good = Variant::makeVector();
    good.push_back(1).push_back("y");
    EXPECT_EQ(good.toJson(), R"([1,"y"])");
}

TEST(JsonWriterOutput, ThreadsWriteTheSameTreesAtOnce) {
    std::mt19937 random(77);
    std::vector<Variant> trees;
    std::vector<std::string> expected;
    for (int i = 0; i < 40; ++i) {
        trees.push_back(randomTree(random, 5, true));
        expected.push_back(referenceJson(trees.back()));
    }
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 20; ++round)
                for (std::size_t i = 0; i < trees.size(); ++i)
                    if (trees[(i + t) % trees.size()].toJson() != expected[(i + t) % trees.size()])
                        ++mismatches[t];
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (int t = 0; t < 4; ++t)
        EXPECT_EQ(mismatches[t], 0) << "thread " << t;
}

} // namespace
