#include <Zel/Log/LogString.h>
#include <Zel/Log/ThreadContext.h>
#include <gtest/gtest.h>
#include <thread>

namespace Zel::Log {
namespace {

TEST(ThreadContext, EmptyUntilInstalledAndScopesNestAndRestore) {
    EXPECT_EQ(ThreadContext::currentSubsystem(), 0);
    EXPECT_EQ(ThreadContext::currentContext(), "");
    {
        ThreadContext outer(1, "task A");
        EXPECT_EQ(ThreadContext::currentSubsystem(), 1);
        {
            ThreadContext inner(2, "task B");
            EXPECT_EQ(ThreadContext::currentSubsystem(), 2);
            EXPECT_EQ(ThreadContext::currentContext(), "task B");
        }
        EXPECT_EQ(ThreadContext::currentSubsystem(), 1);
        EXPECT_EQ(ThreadContext::currentContext(), "task A");
    }
    EXPECT_EQ(ThreadContext::currentSubsystem(), 0);
    EXPECT_EQ(ThreadContext::currentContext(), "");
}

TEST(ThreadContext, EachThreadHasItsOwn) {
    LogString log;
    ThreadContext mine(1, "main");
    std::uint64_t otherId = 0;
    std::thread other([&] {
        EXPECT_EQ(ThreadContext::currentSubsystem(), 0);
        ThreadContext theirs(2, "worker");
        otherId = ThreadContext::currentThreadId();
        log.info("from worker");
    });
    other.join();
    log.info("from main");
    const auto entries = log.entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].subsystem, 2);
    EXPECT_EQ(entries[0].context, "worker");
    EXPECT_EQ(entries[0].threadId, otherId);
    EXPECT_EQ(entries[1].subsystem, 1);
    EXPECT_EQ(entries[1].context, "main");
    // Ids are never 0 and stay the same for the life of a thread.
    EXPECT_NE(otherId, 0u);
    EXPECT_NE(entries[1].threadId, otherId);
    EXPECT_EQ(entries[1].threadId, ThreadContext::currentThreadId());
    EXPECT_NE(entries[1].threadId, 0u);
    EXPECT_EQ(ThreadContext::currentContext(), "main");
}

} // namespace
} // namespace Zel::Log
