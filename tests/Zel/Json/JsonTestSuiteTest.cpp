#include <Zel/GenericException.h>
#include <Zel/Json/Json.h>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// Runs the reader and writer over the JSONTestSuite parsing cases: y_ files are valid JSON, n_ files
// are invalid, i_ files are left to the implementation. Where the reader departs from the suite's
// verdict the file is pinned below with its reason, so that any change in behaviour names the file.

namespace {

namespace fs = std::filesystem;

// n_ cases the reader accepts. Each follows from one of its deliberate leniencies.
const std::map<std::string_view, std::string_view> acceptedInvalidCases = {
    {"n_array_comma_after_close.json", "text after the first value is ignored"},
    {"n_array_extra_close.json", "text after the first value is ignored"},
    {"n_array_extra_comma.json", "a trailing comma in an array is accepted"},
    {"n_array_number_and_comma.json", "a trailing comma in an array is accepted"},
    {"n_multidigit_number_then_00.json", "text after the first value is ignored"},
    {"n_number_-01.json", "integers may have leading zeros"},
    {"n_number_-2..json", "floats follow from_chars, which takes a point without fraction digits"},
    {"n_number_0.e1.json", "floats follow from_chars, which takes a point without fraction digits"},
    {"n_number_2.e+3.json", "floats follow from_chars, which takes a point without fraction digits"},
    {"n_number_2.e-3.json", "floats follow from_chars, which takes a point without fraction digits"},
    {"n_number_2.e3.json", "floats follow from_chars, which takes a point without fraction digits"},
    {"n_number_neg_int_starting_with_zero.json", "integers may have leading zeros"},
    {"n_number_neg_real_without_int_part.json", "floats follow from_chars, which takes -.123"},
    {"n_number_real_without_fractional_part.json",
     "floats follow from_chars, which takes a point without fraction digits"},
    {"n_number_with_leading_zero.json", "integers may have leading zeros"},
    {"n_object_lone_continuation_byte_in_key_and_trailing_comma.json",
     "no UTF-8 check, and a trailing comma in an object is accepted"},
    {"n_object_trailing_comma.json", "a trailing comma in an object is accepted"},
    {"n_object_trailing_comment.json", "text after the first value is ignored"},
    {"n_object_trailing_comment_open.json", "text after the first value is ignored"},
    {"n_object_trailing_comment_slash_open.json", "text after the first value is ignored"},
    {"n_object_trailing_comment_slash_open_incomplete.json", "text after the first value is ignored"},
    {"n_object_with_trailing_garbage.json", "text after the first value is ignored"},
    {"n_string_unescaped_ctrl_char.json", "control characters in strings are copied as they are"},
    {"n_string_unescaped_newline.json", "control characters in strings are copied as they are"},
    {"n_string_unescaped_tab.json", "control characters in strings are copied as they are"},
    {"n_string_with_trailing_garbage.json", "text after the first value is ignored"},
    {"n_structure_array_trailing_garbage.json", "text after the first value is ignored"},
    {"n_structure_array_with_extra_array_close.json", "text after the first value is ignored"},
    {"n_structure_close_unopened_array.json", "text after the first value is ignored"},
    {"n_structure_double_array.json", "text after the first value is ignored"},
    {"n_structure_number_with_trailing_garbage.json", "text after the first value is ignored"},
    {"n_structure_object_followed_by_closing_object.json", "text after the first value is ignored"},
    {"n_structure_object_with_trailing_garbage.json", "text after the first value is ignored"},
    {"n_structure_trailing_#.json", "text after the first value is ignored"},
};

// y_ cases the reader refuses: none, every valid document is read.
const std::map<std::string_view, std::string_view> refusedValidCases = {};

struct Case {
    std::string name;
    std::string text;
};

fs::path suiteDirectory() {
    return fs::path(ZEL_DATA_DIR) / "jsontestsuite" / "test_parsing";
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The cases whose file names start with the prefix, sorted by name so failures read in order.
std::vector<Case> loadCases(std::string_view prefix) {
    std::vector<Case> cases;
    for (const fs::directory_entry& entry : fs::directory_iterator(suiteDirectory())) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(prefix) && name.ends_with(".json"))
            cases.push_back({name, readFile(entry.path())});
    }
    std::sort(cases.begin(), cases.end(), [](const Case& a, const Case& b) { return a.name < b.name; });
    return cases;
}

struct Outcome {
    bool accepted = false;
    std::string error; // the exception text when refused
};

// Anything other than a Zel exception escaping the reader is a fault of its own.
Outcome parseCase(const Case& c) {
    try {
        Zel::Json::parse(c.text);
        return {true, {}};
    } catch (const Zel::GenericException& e) {
        return {false, e.what()};
    } catch (const std::exception& e) {
        ADD_FAILURE() << c.name << ": the reader threw a non-Zel exception: " << e.what();
        return {false, e.what()};
    }
}

// A refusal must carry one of the reader's messages; an invalid-character message must name the
// byte that really is at the offset it reports (0 past the end).
void expectReaderMessage(const Case& c, const std::string& error) {
    static const std::set<std::string> plainMessages = {"Unexpected end", "Invalid integer format",
                                                        "Invalid float format", "Float out of range"};
    if (plainMessages.contains(error)) return;
    int byte = -1;
    std::size_t offset = 0;
    int consumed = 0;
    if (std::sscanf(error.c_str(), "Invalid character #%d at %zu%n", &byte, &offset, &consumed) != 2 ||
        static_cast<std::size_t>(consumed) != error.size()) {
        ADD_FAILURE() << c.name << ": unexpected message: " << error;
        return;
    }
    ASSERT_LE(offset, c.text.size()) << c.name << ": " << error;
    const int actual = offset < c.text.size() ? static_cast<unsigned char>(c.text[offset]) : 0;
    EXPECT_EQ(byte, actual) << c.name << ": " << error;
}

// Checks that the cases the reader decides against the suite are exactly the pinned ones.
void expectDepartures(const std::vector<Case>& cases, bool suiteAccepts,
                      const std::map<std::string_view, std::string_view>& pinned) {
    std::set<std::string> departures;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Outcome outcome = parseCase(c);
        if (!outcome.accepted) expectReaderMessage(c, outcome.error);
        if (outcome.accepted == suiteAccepts) continue;
        departures.insert(c.name);
        if (!pinned.contains(c.name)) {
            ADD_FAILURE() << c.name << " is now "
                          << (outcome.accepted ? "accepted" : "refused (" + outcome.error + ")")
                          << " but is not in the pinned list";
        }
    }
    for (const auto& [name, reason] : pinned) {
        if (!departures.contains(std::string(name))) {
            ADD_FAILURE() << name << " is pinned as " << (suiteAccepts ? "refused" : "accepted") << " ("
                          << reason << ") but no longer is";
        }
    }
}

TEST(JsonTestSuite, FindsAllThreeKindsOfCasesAndThePinnedOnes) {
    EXPECT_EQ(loadCases("y_").size(), 95u);
    EXPECT_EQ(loadCases("n_").size(), 188u);
    EXPECT_EQ(loadCases("i_").size(), 35u);
    for (const auto* pinned : {&acceptedInvalidCases, &refusedValidCases}) {
        for (const auto& [name, reason] : *pinned) {
            EXPECT_TRUE(fs::exists(suiteDirectory() / name))
                << name << " (" << reason << ") is not in the suite";
        }
    }
}

TEST(JsonTestSuite, AcceptsEveryValidCaseExceptThePinnedOnes) {
    expectDepartures(loadCases("y_"), true, refusedValidCases);
}

TEST(JsonTestSuite, RefusesEveryInvalidCaseExceptThePinnedOnes) {
    expectDepartures(loadCases("n_"), false, acceptedInvalidCases);
}

TEST(JsonTestSuite, ImplementationDefinedCasesEitherParseOrRefuseWithAReaderMessage) {
    for (const Case& c : loadCases("i_")) {
        SCOPED_TRACE(c.name);
        const Outcome outcome = parseCase(c);
        if (!outcome.accepted) expectReaderMessage(c, outcome.error);
    }
}

// Whatever the reader accepts, the writer must render as text that reads back to the same tree.
// Trees are compared through their JSON text because vectors have no operator ==.
TEST(JsonTestSuite, AcceptedDocumentsSurviveAWriteAndReadBack) {
    for (const std::string_view prefix : {"y_", "n_", "i_"}) {
        for (const Case& c : loadCases(prefix)) {
            SCOPED_TRACE(c.name);
            Zel::Variant first;
            try {
                first = Zel::Json::parse(c.text);
            } catch (const Zel::GenericException&) {
                continue; // refusals are checked above
            }
            const std::string written = first.toJson();
            Zel::Variant second;
            try {
                second = Zel::Json::parse(written);
            } catch (const Zel::GenericException& e) {
                ADD_FAILURE() << c.name << ": the written text " << written
                              << " does not read back: " << e.what();
                continue;
            }
            EXPECT_EQ(second.toJson(), written) << c.name;
            EXPECT_EQ(second.type(), first.type()) << c.name;
        }
    }
}

} // namespace
