#include <Zel/ArgumentException.h>
#include <Zel/Json/ParserException.h>
#include <Zel/Locale/Translator.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Zel::Locale::PluralCategory;

TEST(Plural, CardinalCategoriesByLanguage) {
    constexpr auto One = PluralCategory::One;
    constexpr auto Few = PluralCategory::Few;
    constexpr auto Many = PluralCategory::Many;
    constexpr auto Other = PluralCategory::Other;
    struct Row {
        const char* language;
        std::vector<std::pair<std::int64_t, PluralCategory>> cases;
    };
    const Row rows[] = {
        {"en", {{0, Other}, {1, One}, {2, Other}, {11, Other}, {21, Other}, {-1, One}}},
        {"de-AT", {{0, Other}, {1, One}, {5, Other}, {101, Other}}},
        {"fr", {{0, One}, {1, One}, {2, Other}, {1000000, Many}, {2000000, Many}, {1000001, Other}}},
        {"pl",
         {{0, Many},
          {1, One},
          {2, Few},
          {4, Few},
          {5, Many},
          {11, Many},
          {12, Many},
          {14, Many},
          {21, Many},
          {22, Few},
          {24, Few},
          {25, Many},
          {101, Many},
          {102, Few},
          {112, Many},
          {122, Few}}},
        {"ru",
         {{0, Many},
          {1, One},
          {2, Few},
          {5, Many},
          {11, Many},
          {12, Many},
          {21, One},
          {22, Few},
          {25, Many},
          {101, One},
          {111, Many},
          {112, Many},
          {121, One},
          {1001, One},
          {-21, One}}},
        {"uk_UA", {{1, One}, {3, Few}, {13, Many}}},
        {"cs", {{1, One}, {3, Few}, {5, Other}, {22, Other}}},
        {"ja", {{1, Other}, {2, Other}}},
        {"xx", {{1, One}, {2, Other}}},
    };
    for (const auto& row : rows) {
        for (const auto& [count, category] : row.cases) {
            SCOPED_TRACE(std::string(row.language) + " " + std::to_string(count));
            EXPECT_EQ(Zel::Locale::toString(Zel::Locale::pluralCategory(row.language, count)),
                      Zel::Locale::toString(category));
        }
    }
    EXPECT_EQ(Zel::Locale::pluralCategory("ru", std::numeric_limits<std::int64_t>::min()), Many); // ...808
}

class TranslatorFiles : public testing::Test {
protected:
    void SetUp() override {
        m_directory = std::filesystem::temp_directory_path() /
                      ("zel-locale-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) +
                       "-" + std::to_string(reinterpret_cast<std::uintptr_t>(this)));
        std::filesystem::create_directories(m_directory);
        write("en.json", R"({"greeting": "Hello {name}", "bye": "Goodbye",
            "notes": {"count": {"one": "{count} note", "other": "{count} notes"}, "title": "Notes"}})");
        write("de.json", "\xEF\xBB\xBF"
                         R"({"greeting": "Hallo {name}",
            "notes": {"count": {"one": "{count} Notiz", "other": "{count} Notizen"}}})");
        write("de-AT.json", R"({"greeting": "Servus {name}"})");
        write("pl.json", R"({"notes": {"count": {"one": "{count} notatka", "few": "{count} notatki",
            "many": "{count} notatek", "other": "{count} notatki"}}})");
        write("ru.json", R"({"notes.count": {"one": "{count} заметка", "few": "{count} заметки",
            "many": "{count} заметок", "other": "{count} заметки"}})");
        write("fr.json", R"({"notes": {"count": {"one": "{count} note", "other": "{count} notes"}}})");
        write("readme.txt", "not a vocabulary");
    }
    void TearDown() override { std::filesystem::remove_all(m_directory); }
    void write(const std::string& name, const std::string& text) {
        std::ofstream(m_directory / name) << text;
    }

    std::filesystem::path m_directory;
};

TEST_F(TranslatorFiles, FallsBackAlongTheChain) {
    Zel::Locale::Translator tr("en");
    EXPECT_EQ(tr.loadDirectory(m_directory.string()), 6u);
    EXPECT_THAT(tr.fallbackChain("de_at"), testing::ElementsAre("de-AT", "de", "en"));
    EXPECT_THAT(tr.fallbackChain("EN-gb"), testing::ElementsAre("en-GB", "en"));
    auto params = Zel::Variant::makeMap();
    params.setAt("name", Zel::Variant("Anna"));
    struct Row {
        const char* language;
        const char* key;
        const char* expected;
    };
    const Row rows[] = {
        {"de-AT", "greeting", "Servus Anna"},    {"de-DE", "greeting", "Hallo Anna"},
        {"de", "greeting", "Hallo Anna"},        {"de-AT", "bye", "Goodbye"},
        {"pl", "greeting", "Hello Anna"},        {"de-AT", "notes.title", "Notes"},
        {"de-AT", "missing.key", "missing.key"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.language) + " " + row.key);
        EXPECT_EQ(tr.translate(row.language, row.key, params), row.expected);
    }
}

TEST_F(TranslatorFiles, PluralFormsFollowTheLanguageThatHasTheKey) {
    Zel::Locale::Translator tr("en");
    tr.loadDirectory(m_directory.string());
    struct Row {
        const char* language;
        std::int64_t count;
        const char* expected;
    };
    const Row rows[] = {
        {"en", 1, "1 note"},
        {"en", 0, "0 notes"},
        {"de-AT", 1, "1 Notiz"},
        {"de-AT", 2, "2 Notizen"},
        {"fr", 0, "0 note"},
        {"fr", 2, "2 notes"},
        {"fr", 1000000, "1000000 notes"},
        {"pl", 1, "1 notatka"},
        {"pl", 2, "2 notatki"},
        {"pl", 5, "5 notatek"},
        {"pl", 12, "12 notatek"},
        {"pl", 22, "22 notatki"},
        {"pl", 25, "25 notatek"},
        {"pl", 101, "101 notatek"},
        {"ru", 1, "1 заметка"},
        {"ru", 2, "2 заметки"},
        {"ru", 5, "5 заметок"},
        {"ru", 12, "12 заметок"},
        {"ru", 22, "22 заметки"},
        {"ru", 25, "25 заметок"},
        {"ru", 101, "101 заметка"},
        {"ru", 111, "111 заметок"},
        {"ja", 1, "1 note"}, // no Japanese file: English forms by English rules
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.language) + " " + std::to_string(row.count));
        EXPECT_EQ(tr.plural(row.language, "notes.count", row.count), row.expected);
    }
    auto params = Zel::Variant::makeMap();
    params.setAt("count", Zel::Variant("many"));
    EXPECT_EQ(tr.plural("en", "notes.count", 3, params), "many notes");
}

TEST(Translator, Placeholders) {
    auto params = Zel::Variant::makeMap();
    params.setAt("name", Zel::Variant("Anna"))
        .setAt("n", Zel::Variant(3))
        .setAt("list", Zel::Variant::makeVector());
    struct Row {
        const char* text;
        const char* expected;
    };
    const Row rows[] = {
        {"{name} has {n}", "Anna has 3"},
        {"{{name}} {name}", "{name} Anna"},
        {"{missing} {name}", "{missing} Anna"},
        {"{name", "{name"},
        {"}} {", "} {"},
        {"{list}", "[]"},
        {"", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(Zel::Locale::Translator::fill(row.text, params), row.expected);
    }
    EXPECT_EQ(Zel::Locale::Translator::fill("{name}", Zel::Variant()), "{name}");
}

TEST(Vocabulary, RejectsMalformedEntries) {
    struct Row {
        const char* json;
        const char* message;
    };
    const Row rows[] = {
        {R"({"a": 1})", "Invalid vocabulary entry | language=de | key=a"},
        {R"({"a": {"b": [1]}})", "Invalid vocabulary entry | language=de | key=a.b"},
        {R"({"a": {"one": "x"}})", "Invalid vocabulary entry | language=de | key=a"},
        {R"({"a": {"one": 1, "other": "x"}})", "Invalid vocabulary entry | language=de | key=a.one"},
        {R"({"a": {}})", "Invalid vocabulary entry | language=de | key=a"},
        {R"(["a"])", "Invalid vocabulary entry | language=de | key="},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.json);
        try {
            Zel::Locale::Vocabulary::fromJson("de", row.json);
            ADD_FAILURE();
        } catch (const Zel::ArgumentException& error) {
            EXPECT_EQ(error.message(), row.message);
        }
    }
    EXPECT_THROW(Zel::Locale::Vocabulary::fromJson("de", "{\"a\": "), Zel::GenericException);
    EXPECT_THROW(Zel::Locale::Vocabulary::load("de", "/nonexistent/de.json"), Zel::ArgumentException);
}

} // namespace
