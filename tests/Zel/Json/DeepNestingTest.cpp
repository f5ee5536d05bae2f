#include <Zel/Json/Json.h>
#include <Zel/Json/ParserException.h>
#include <Zel/VariantInvalidOperationException.h>
#include <algorithm>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <pthread.h>
#include <string>

// Documents nested far deeper than any call stack could follow by recursion must be read, written,
// compared and released without exhausting the stack.

namespace {

constexpr int depth = 100'000;

// 8 MiB, the usual default for a main thread. A thread of our own makes the test independent of
// the stack limit of whatever shell runs it.
constexpr std::size_t defaultStackSize = 8u << 20;

struct StackJob {
    const std::function<void()>* body;
    std::exception_ptr error;
};

void* runStackJob(void* argument) {
    auto* job = static_cast<StackJob*>(argument);
    try {
        (*job->body)();
    } catch (...) {
        job->error = std::current_exception();
    }
    return nullptr;
}

void runOnDefaultStack(const std::function<void()>& body) {
    StackJob job{&body, nullptr};
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, defaultStackSize), 0);
    pthread_t thread;
    const int created = pthread_create(&thread, &attributes, runStackJob, &job);
    pthread_attr_destroy(&attributes);
    ASSERT_EQ(created, 0);
    pthread_join(thread, nullptr);
    if (job.error) std::rethrow_exception(job.error);
}

std::string repeat(std::string_view piece, int count) {
    std::string text;
    text.reserve(piece.size() * static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        text += piece;
    return text;
}

// [[[...[]...]]]: `depth` arrays, the innermost empty.
std::string nestedArrays(std::string_view open = "[", std::string_view close = "]") {
    return repeat(open, depth) + repeat(close, depth);
}

// {"a":{"a":...{"a":<innermost>}...}}: `depth` objects.
std::string nestedObjects(std::string_view innermost, std::string_view key = "a") {
    return repeat("{\"" + std::string(key) + "\":", depth) + std::string(innermost) + repeat("}", depth);
}

// Follows the single member or element of each level; returns how many containers were passed
// and leaves `innermost` at the first value that is not a one-member container.
int descend(const Zel::Variant& root, const Zel::Variant*& innermost) {
    int levels = 0;
    const Zel::Variant* current = &root;
    for (;;) {
        if (current->isMap() && current->size() == 1) {
            current = &current->begin()->value();
        } else if (current->isVector() && current->size() == 1) {
            current = &(*current)[0];
        } else {
            break;
        }
        ++levels;
    }
    innermost = current;
    return levels;
}

TEST(DeepNesting, HundredThousandUnclosedArraysOrObjectsRaiseUnexpectedEnd) {
    std::ifstream in(std::filesystem::path(ZEL_DATA_DIR) / "jsontestsuite" / "test_parsing" /
                         "n_structure_100000_opening_arrays.json",
                     std::ios::binary);
    const std::string arrays{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    ASSERT_EQ(std::count(arrays.begin(), arrays.end(), '['), depth);
    for (const std::string& text : {arrays, repeat("{\"a\":", depth)}) {
        SCOPED_TRACE(text.substr(0, 10));
        runOnDefaultStack([&] {
            try {
                Zel::Json::parse(text);
                ADD_FAILURE() << "unclosed containers were accepted";
            } catch (const Zel::Json::ParserException& e) {
                EXPECT_STREQ(e.what(), "Unexpected end");
            }
        });
    }
}

TEST(DeepNesting, DeepArraysAreReadWrittenCopiedAndReleased) {
    const std::string text = nestedArrays();
    runOnDefaultStack([&] {
        Zel::Variant document = Zel::Json::parse(text);
        const Zel::Variant* innermost = nullptr;
        EXPECT_EQ(descend(document, innermost), depth - 1);
        EXPECT_TRUE(innermost->isVector());
        EXPECT_TRUE(innermost->empty());

        EXPECT_EQ(document.toJson(), text);

        Zel::Variant copy = document;
        document.clear(); // the copy now holds the only reference
        EXPECT_EQ(copy.toJson(), text);
        // Vectors have no equality, at any depth.
        EXPECT_THROW(static_cast<void>(copy == Zel::Json::parse(text)),
                     Zel::VariantInvalidOperationException);
        // White space between the levels is not kept.
        EXPECT_EQ(Zel::Json::parse(nestedArrays("[\n ", "\t]\r\n")).toJson(), text);
    });
}

TEST(DeepNesting, DeepObjectsAreReadWrittenComparedAndReleased) {
    const std::string text = nestedObjects("1");
    runOnDefaultStack([&] {
        const Zel::Variant document = Zel::Json::parse(text);
        const Zel::Variant* innermost = nullptr;
        EXPECT_EQ(descend(document, innermost), depth);
        ASSERT_EQ(innermost->type(), Zel::Variant::Type::Int32);
        EXPECT_EQ(static_cast<int>(*innermost), 1);

        EXPECT_EQ(document.toJson(), text);

        // Separately parsed trees share no payload, so equality has to walk every level.
        EXPECT_TRUE(document == Zel::Json::parse(text));
        EXPECT_FALSE(document == Zel::Json::parse(nestedObjects("2")));
        EXPECT_FALSE(document == Zel::Json::parse(nestedObjects("1", "b")));
        EXPECT_FALSE(document == Zel::Json::parse(nestedObjects("{}")));
    });
}

TEST(DeepNesting, ChangingACopyOfADeepObjectLeavesTheOriginal) {
    const std::string text = nestedObjects("null");
    runOnDefaultStack([&] {
        Zel::Variant document = Zel::Json::parse(text);
        Zel::Variant copy = document;
        EXPECT_TRUE(copy == document);

        copy.setAt("b", true);
        EXPECT_FALSE(copy == document);
        EXPECT_EQ(document.toJson(), text);
        EXPECT_EQ(copy.toJson(), text.substr(0, text.size() - 1) + ",\"b\":true}");

        // Releasing the original first leaves the copy's shared levels intact.
        document.clear();
        EXPECT_EQ(copy["a"].toJson(), text.substr(5, text.size() - 6));
    });
}

TEST(DeepNesting, AlternatingArraysAndObjectsRoundTrip) {
    const std::string text = repeat("[{\"a\":", depth / 2) + "0" + repeat("}]", depth / 2);
    runOnDefaultStack([&] {
        const Zel::Variant document = Zel::Json::parse(text);
        const Zel::Variant* innermost = nullptr;
        EXPECT_EQ(descend(document, innermost), depth);
        EXPECT_EQ(innermost->type(), Zel::Variant::Type::Int32);
        EXPECT_EQ(document.toJson(), text);
    });
}

TEST(DeepNesting, TreesBuiltInCodeAreWrittenAndReleased) {
    runOnDefaultStack([&] {
        Zel::Variant objects = Zel::Variant::makeMap();
        Zel::Variant arrays = Zel::Variant::makeVector();
        // The innermost level of the object tree holds {}, so the two trees hold `depth` containers.
        for (int i = 1; i < depth; ++i) {
            Zel::Variant object = Zel::Variant::makeMap();
            object.setAt("a", std::move(objects));
            objects = std::move(object);
            Zel::Variant array = Zel::Variant::makeVector();
            array.push_back(std::move(arrays));
            arrays = std::move(array);
        }
        EXPECT_EQ(objects.toJson(), repeat("{\"a\":", depth - 1) + "{}" + repeat("}", depth - 1));
        EXPECT_EQ(arrays.toJson(), nestedArrays());
        EXPECT_TRUE(objects == Zel::Json::parse(objects.toJson()));
    });
}

} // namespace
