#include <Zel/Version.h>

#include <Zel/ArgumentException.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Zel {
namespace {

TEST(Version, ParsesAndPrintsOneToFourComponents) {
    struct Row {
        std::string text;
        int size;
        std::vector<std::int32_t> components;
    };
    const std::vector<Row> rows = {
        {"1.1", 2, {1, 1}},      {"1.0", 2, {1, 0}},
        {"2", 1, {2}},           {"10.0.19045.3803", 4, {10, 0, 19045, 3803}},
        {"0.9.1", 3, {0, 9, 1}}, {"2147483647.0", 2, {2147483647, 0}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        const Version version = Version::parse(row.text);
        EXPECT_EQ(version.size(), row.size);
        for (int i = 0; i < Version::maxComponents; ++i) {
            EXPECT_EQ(version.component(i), i < row.size ? row.components[static_cast<std::size_t>(i)] : 0);
        }
        EXPECT_EQ(version.toString(), row.text);
    }
}

TEST(Version, RefusesTextThatIsNotNumbersAndDots) {
    for (const std::string text :
         {"", ".", "1.", ".1", "1..1", "1.1.1.1.1", "1.x", "-1.0", "+1.0", "1 .1", "2147483648.0", "1.1 "}) {
        SCOPED_TRACE(text);
        try {
            Version::parse(text);
            FAIL() << "no exception";
        } catch (const ArgumentException& e) {
            EXPECT_EQ(std::string(e.what()), "Version: invalid text | text=" + text);
        }
    }
}

TEST(Version, CutsLongTextInItsError) {
    const std::string text(100, '9');
    try {
        Version::parse(text);
        FAIL() << "no exception";
    } catch (const ArgumentException& e) {
        EXPECT_EQ(std::string(e.what()), "Version: invalid text | text=" + text.substr(0, 64) + "...");
    }
}

TEST(Version, OtherSeparatorsAndComparison) {
    const Version version = Version::parse("3-2-1", '-');
    EXPECT_EQ(version, Version(3, 2, 1));
    EXPECT_EQ(version.toString('_'), "3_2_1");
    EXPECT_LT(Version(1, 0), Version(1, 1));
    EXPECT_LT(Version(1, 9), Version(2, 0));
    EXPECT_LT(Version(1, 1), Version(1, 1, 1));
    EXPECT_EQ(Version(1, 2), Version(1, 2, 0));
    EXPECT_TRUE(Version().empty());
    EXPECT_EQ(Version().toString(), "");
    EXPECT_EQ(Version().major(), 0);
}

} // namespace
} // namespace Zel
