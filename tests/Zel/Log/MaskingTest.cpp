#include "TestSupport.h"

#include <Zel/Log/Masking.h>
#include <gtest/gtest.h>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace Zel::Log {
namespace {

// The definition the matcher must equal, run through the standard library's engine.
std::string maskWithRegex(const std::string& text) {
    static const std::regex expression(
        R"((communityRead|communityWrite|pwd|password|pin|pinCard|refreshToken)(\\"|")\s*:\s*\2.*?\2)",
        std::regex::ECMAScript);
    return std::regex_replace(text, expression, "$1$2:$2****$2");
}

const char* const keys[] = {"communityRead", "communityWrite", "pwd",         "password",
                            "pin",           "pinCard",        "refreshToken"};

TEST(Masking, EveryKeyInBothQuoteStyles) {
    for (const std::string key : keys) {
        SCOPED_TRACE(key);
        // A plain JSON object.
        EXPECT_EQ(hidePrivateStringInJson("{\"" + key + "\":\"s3cr3t value\",\"next\":1}"),
                  "{\"" + key + "\":\"****\",\"next\":1}");
        // The same object carried as text inside a JSON string: quotes are backslash-escaped.
        EXPECT_EQ(hidePrivateStringInJson(R"({"params":"{\")" + key + R"(\":\"s3cr3t\",\"next\":1}"})"),
                  R"({"params":"{\")" + key + R"(\":\"****\",\"next\":1}"})");
    }
}

// Each row is masked as given and exactly as the regular expression does.
TEST(Masking, ChosenTextsAreMaskedExactlyAsTheExpressionDoes) {
    struct Row {
        const char* input;
        const char* expected;
    };
    const Row rows[] = {
        {R"({"user":"bob","password":"abc","port":8080})", R"({"user":"bob","password":"****","port":8080})"},
        {R"({"user":"abc"})", R"({"user":"abc"})"},
        // Keys that merely end in a listed word are masked too.
        {R"({"mypassword":"x"})", R"({"mypassword":"****"})"},
        {R"({"userPwd":"x"})", R"({"userPwd":"x"})"},      // "Pwd" differs in case: not masked...
        {R"({"adminpwd":"x"})", R"({"adminpwd":"****"})"}, // ...but a lower-case ending is
        {R"({"simPin":"1234"})", R"({"simPin":"1234"})"},
        {R"({"simpin":"1234"})", R"({"simpin":"****"})"},
        {R"({"oldrefreshToken":"t"})", R"({"oldrefreshToken":"****"})"},
        {R"({"passwordHint":"x"})", R"({"passwordHint":"x"})"}, // the key must be followed by its quote
        {R"({"pinCode":"1"})", R"({"pinCode":"1"})"},
        {R"({"PASSWORD":"x"})", R"({"PASSWORD":"x"})"}, // case-sensitive
        // White space around the colon is dropped by the replacement.
        {"{\"pwd\" :\t \"x\"}", R"({"pwd":"****"})"},
        {"{\"pwd\"\n:\n\"x\"}", R"({"pwd":"****"})"},
        // An empty value is masked as well.
        {R"({"pin":""})", R"({"pin":"****"})"},
        // pinCard is tried after pin fails on the letter that follows.
        {R"({"pinCard":"4111"})", R"({"pinCard":"****"})"},
        // Only string values: a number or null is not a match.
        {R"({"password":123,"a":"b"})", R"({"password":123,"a":"b"})"},
        {R"({"password":null})", R"({"password":null})"},
        // The lazy value ends at the first quote, even an escaped one inside the value.
        {R"({"password":"a\"b","x":1})", R"({"password":"****"b","x":1})"},
        // In the escaped style the value ends at the first backslash-quote.
        {R"("{\"pwd\":\"a"b\",\"c\":1}")", R"("{\"pwd\":\"****\",\"c\":1}")"},
        // The value may not cross a line break.
        {"{\"password\":\"ab\ncd\"}", "{\"password\":\"ab\ncd\"}"},
        {"{\"password\":\"ab\rcd\"}", "{\"password\":\"ab\rcd\"}"},
        // Only the quotes after the key count; the one before it is not part of the expression.
        {R"({\"password":"x"})", R"({\"password":"****"})"},
        {R"({"password\":\"x\"})", R"({"password\":\"****\"})"},
        // The value must be closed in the quote style that follows the key.
        {R"({"password\":\"x"})", R"({"password\":\"x"})"},
        // Adjacent and repeated secrets.
        {R"("pin":"1""pin":"2")", R"("pin":"****""pin":"****")"},
        {R"({"a":{"password":"1"},"b":[{"pwd":"2"}]})", R"({"a":{"password":"****"},"b":[{"pwd":"****"}]})"},
        // An unterminated value ends at the next key's opening quote; that key is matched after it.
        {R"({"pwd":"x,"password":"y"})", R"({"pwd":"****"password":"****"})"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.input);
        EXPECT_EQ(hidePrivateStringInJson(row.input), row.expected);
        EXPECT_EQ(hidePrivateStringInJson(row.input), maskWithRegex(row.input));
    }
}

TEST(Masking, MalformedAndTruncatedTextIsCopiedUnchanged) {
    const std::string inputs[] = {
        "",
        "\"",
        "password",
        R"({"password")",
        R"({"password":)",
        R"({"password":")",
        R"({"password":"abc)",
        R"({"password" "abc"})",
        R"({"password"::"abc"})",
        R"(\")",
        R"({\"pwd\":\"abc)",
        std::string("{\"pwd\":\"a\0b", 11),
        "\xff\xfe\"password\xff\":\"",
    };
    for (const std::string& input : inputs) {
        SCOPED_TRACE(input);
        EXPECT_EQ(hidePrivateStringInJson(input), input);
        EXPECT_EQ(maskWithRegex(input), input);
    }
}

TEST(Masking, TruncatingAMaskableTextAtEveryLengthNeverChangesTheRest) {
    const std::string full = R"({"user":"bob","password":"abc","token":{"refreshToken":"r-1"},"pin":"42"})";
    for (std::size_t length = 0; length <= full.size(); ++length) {
        const std::string input = full.substr(0, length);
        SCOPED_TRACE(input);
        EXPECT_EQ(hidePrivateStringInJson(input), maskWithRegex(input));
    }
}

TEST(Masking, AppendFormAddsToWhatIsThere) {
    std::string out = "data=";
    hidePrivateStringInJson(R"({"pwd":"x"})", out);
    EXPECT_EQ(out, R"(data={"pwd":"****"})");
}

// Random texts built from the pieces the expression cares about, compared with the regular
// expression itself: the keys, parts of them, both quotes, backslashes, white space, line breaks,
// NUL and bytes above 0x7f.
TEST(Masking, EqualsTheRegularExpressionOnGeneratedTexts) {
    std::vector<std::string> pieces(std::begin(keys), std::end(keys));
    pieces.insert(pieces.end(), {"pass",     "Card", "word", "commun", "Token",  "my", "x",
                                 "\"",       "\\\"", "\\",   ":",      " ",      "\t", "\n",
                                 "\r",       "\v",   "\f",   "{",      "}",      ",",  std::string(1, '\0'),
                                 "\xc2\xa0", "\xff", "****", "\"\"",   "\\\\\"", "[",  "1"});
    std::mt19937 random(20240305);
    for (int i = 0; i < 20000; ++i) {
        std::string text;
        const int count = static_cast<int>(random() % 24);
        for (int k = 0; k < count; ++k)
            text += pieces[random() % pieces.size()];
        const std::string expected = maskWithRegex(text);
        const std::string actual = hidePrivateStringInJson(text);
        if (actual != expected) {
            ADD_FAILURE() << "input: " << ::testing::PrintToString(text)
                          << "\nregex:   " << ::testing::PrintToString(expected)
                          << "\nmatcher: " << ::testing::PrintToString(actual);
            return;
        }
    }
}

// Slices of real JSON documents with secrets planted at random offsets, so that the matcher meets
// real structure, long values and UTF-8 text as well.
TEST(Masking, EqualsTheRegularExpressionOnRealJsonWithPlantedSecrets) {
    const std::string sources[] = {
        Testing::readFile(std::string(ZEL_DATA_DIR) + "/json/twitter.json"),
        Testing::readFile(std::string(ZEL_DATA_DIR) + "/json/github_events.json"),
    };
    const std::string plants[] = {
        R"("password":"hunter2")",
        R"("pwd" : "x y")",
        R"(\"pinCard\":\"4111\")",
        R"("refreshToken":")",
        R"("communityRead":"public","communityWrite":"private")",
        R"("mypin":"")",
    };
    std::mt19937 random(7);
    int compared = 0;
    for (const std::string& source : sources) {
        if (source.empty()) continue;
        for (int i = 0; i < 150; ++i) {
            const std::size_t start = random() % source.size();
            std::string slice = source.substr(start, 1024);
            for (int k = 0; k < 3; ++k) {
                slice.insert(random() % (slice.size() + 1), plants[random() % std::size(plants)]);
            }
            SCOPED_TRACE(slice);
            ASSERT_EQ(hidePrivateStringInJson(slice), maskWithRegex(slice));
            ++compared;
        }
    }
    EXPECT_EQ(compared, 300) << "real JSON data missing under " << ZEL_DATA_DIR;
}

} // namespace
} // namespace Zel::Log
