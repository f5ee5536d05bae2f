#include <Zel/UniqueFunction.h>
#include <array>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

TEST(UniqueFunction, HoldsMoveOnlyCallables) {
    auto owned = std::make_unique<int>(41);
    Zel::UniqueFunction<int(int)> add = [owned = std::move(owned)](int step) { return *owned + step; };
    EXPECT_EQ(add(1), 42);
    Zel::UniqueFunction<int(int)> moved = std::move(add);
    EXPECT_FALSE(add); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(moved(2), 43);
}

TEST(UniqueFunction, CallingAnEmptyOneThrows) {
    Zel::UniqueFunction<void()> empty;
    EXPECT_THROW(empty(), std::bad_function_call);
    Zel::UniqueFunction<void()> cleared = [] {};
    cleared = nullptr;
    EXPECT_THROW(cleared(), std::bad_function_call);
}

TEST(UniqueFunction, DestroysTheCallableOnce) {
    auto counter = std::make_shared<int>(0);
    {
        Zel::UniqueFunction<void()> function = [counter] { ++*counter; };
        function();
        EXPECT_EQ(counter.use_count(), 2);
    }
    EXPECT_EQ(counter.use_count(), 1);
    EXPECT_EQ(*counter, 1);
}

// Small callables live inside the object and large ones on the heap: each kind must survive moves,
// move assignment over a held callable, and be destroyed exactly once.
TEST(UniqueFunction, SmallAndLargeCallablesMoveAndDieOnce) {
    auto counter = std::make_shared<int>(0);
    struct Large {
        std::shared_ptr<int> counter;
        std::array<char, 64> padding{};
        int operator()(int step) const { return *counter += step; }
    };
    struct ThrowingMove { // never kept inline: a move that may throw could not relocate safely
        std::shared_ptr<int> counter;
        ThrowingMove(std::shared_ptr<int> c) : counter(std::move(c)) {}
        ThrowingMove(ThrowingMove&& other) noexcept(false) : counter(std::move(other.counter)) {}
        int operator()(int step) const { return *counter += step; }
    };
    std::vector<std::pair<const char*, Zel::UniqueFunction<int(int)>>> cases;
    cases.emplace_back("small", [counter](int step) { return *counter += step; });
    cases.emplace_back("large", Large{counter});
    cases.emplace_back("throwing move", ThrowingMove{counter});
    for (auto& [name, function] : cases) {
        SCOPED_TRACE(name);
        *counter = 0;
        const long before = counter.use_count();
        Zel::UniqueFunction<int(int)> moved = std::move(function);
        EXPECT_FALSE(function); // NOLINT(bugprone-use-after-move)
        EXPECT_EQ(moved(2), 2);
        Zel::UniqueFunction<int(int)> target = [counter](int) { return -1; };
        EXPECT_EQ(counter.use_count(), before + 1);
        target = std::move(moved);
        EXPECT_EQ(counter.use_count(), before) << "the replaced callable was not destroyed";
        EXPECT_EQ(target(3), 5);
        target = nullptr;
        EXPECT_EQ(counter.use_count(), before - 1);
    }
    EXPECT_EQ(counter.use_count(), 1);
}

// A callable whose destructor hands its function a successor (as a task that re-arms itself does)
// must not see the successor destroyed or overwritten.
TEST(UniqueFunction, ADestructorMayAssignToItsOwnFunction) {
    Zel::UniqueFunction<std::string()> function;
    struct Rearm {
        Zel::UniqueFunction<std::string()>* owner;
        bool armed = true;
        Rearm(Zel::UniqueFunction<std::string()>* o) : owner(o) {}
        Rearm(Rearm&& other) noexcept : owner(other.owner), armed(std::exchange(other.armed, false)) {}
        ~Rearm() {
            if (armed) *owner = [] { return std::string("successor"); };
        }
        std::string operator()() const { return "first"; }
    };
    function = Rearm{&function};
    EXPECT_EQ(function(), "first");
    function = nullptr; // the destructor installs the successor
    ASSERT_TRUE(function);
    EXPECT_EQ(function(), "successor");
}

} // namespace
