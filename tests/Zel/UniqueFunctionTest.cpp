#include <Zel/UniqueFunction.h>

#include <gtest/gtest.h>

#include <memory>

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

} // namespace
