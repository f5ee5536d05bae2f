#include "TestSupport.h"

#include <Zel/Json/Json.h>
#include <Zel/Tasks/TaskAddResult.h>
#include <Zel/Tasks/TaskOptions.h>
#include <Zel/Tasks/TaskRunInfo.h>
#include <Zel/Variant.h>
#include <Zel/VariantInvalidOperationException.h>
#include <chrono>
#include <cstdint>
#include <gtest/gtest.h>

namespace Zel::Tasks {
namespace {

using namespace std::chrono_literals;

TEST(TaskOptions, HasTheDocumentedDefaultsAndKeyOrder) {
    EXPECT_EQ(TaskOptions().toJson(),
              R"({"retryCount":0,"retryMinBackoff":5000,"retryMaxBackoff":30000,"reference":"",)"
              R"("logContext":"","logSubsystem":0,"uniqueness":1,"tag":0})");
}

TEST(TaskOptions, SettersChainAndShowInTheJson) {
    const TaskOptions options = TaskOptions()
                                    .retryIndefinitely()
                                    .setRetryMinBackoff(250ms)
                                    .setRetryMaxBackoff(4s)
                                    .setReference("mail:\"42\"")
                                    .setUniqueness(Uniqueness::WaitingOrRunning)
                                    .setTag(7)
                                    .setLogSubsystem(3)
                                    .setLogContext("nightly");
    EXPECT_EQ(options.retryCount(), -1);
    EXPECT_EQ(options.toJson(),
              R"({"retryCount":-1,"retryMinBackoff":250,"retryMaxBackoff":4000,"reference":"mail:\"42\"",)"
              R"("logContext":"nightly","logSubsystem":3,"uniqueness":2,"tag":7})");
}

TEST(TaskOptions, FromDtoOverridesOnlyTheKeysPresent) {
    struct Case {
        const char* json;
        TaskOptions expected;
    };
    const Case cases[] = {
        {R"({})", TaskOptions()},
        {R"({"retryCount":3,"tag":9})", TaskOptions().setRetryCount(3).setTag(9)},
        {R"({"retryMinBackoff":100,"retryMaxBackoff":2000,"reference":"r1","uniqueness":2})",
         TaskOptions().setRetryMinBackoff(100ms).setRetryMaxBackoff(2s).setReference("r1").setUniqueness(
             Uniqueness::WaitingOrRunning)},
        {R"({"logSubsystem":4,"logContext":"import","unknown":true})",
         TaskOptions().setLogSubsystem(4).setLogContext("import")},
        {R"([1,2,3])", TaskOptions()},
    };
    for (const Case& row : cases) {
        SCOPED_TRACE(row.json);
        EXPECT_EQ(TaskOptions::fromDto(Json::parse(row.json)), row.expected);
    }
}

TEST(TaskOptions, RoundTripsThroughJson) {
    const TaskOptions options =
        TaskOptions().setRetryCount(5).setRetryMinBackoff(10ms).setReference("x").setTag(-2);
    EXPECT_EQ(TaskOptions::fromDto(Json::parse(options.toJson())), options);
}

TEST(TaskOptions, ReadsTheBackoffsAsThirtyTwoBitIntegers) {
    // Through the 32-bit conversion: text is converted, a 64-bit number is refused rather than cut.
    EXPECT_EQ(TaskOptions::fromDto(Json::parse(R"({"retryMinBackoff":"1500"})")).retryMinBackoff(), 1500ms);
    EXPECT_EQ(
        TaskOptions::fromDto(Json::parse(R"({"retryMaxBackoff":2147483647})")).retryMaxBackoff().count(),
        2147483647);
    EXPECT_THROW(TaskOptions::fromDto(Json::parse(R"({"retryMinBackoff":4294967301})")),
                 VariantInvalidOperationException);
}

TEST(TaskOptions, BackoffDoublesUpToTheMaximumAndTheExponentStopsAtSeven) {
    const TaskOptions usual = TaskOptions().setRetryMinBackoff(5000ms).setRetryMaxBackoff(30000ms);
    const std::int64_t usualExpected[] = {5000, 10000, 20000, 30000, 30000};
    for (int retry = 1; retry <= 5; ++retry) {
        SCOPED_TRACE(retry);
        EXPECT_EQ(usual.retryBackoff(retry).count(), usualExpected[retry - 1]);
    }
    const TaskOptions unbounded =
        TaskOptions().setRetryMinBackoff(3ms).setRetryMaxBackoff(std::chrono::hours(1));
    const std::int64_t unboundedExpected[] = {3, 6, 12, 24, 48, 96, 192, 384, 384, 384};
    for (int retry = 1; retry <= 10; ++retry) {
        SCOPED_TRACE(retry);
        EXPECT_EQ(unbounded.retryBackoff(retry).count(), unboundedExpected[retry - 1]);
    }
}

TEST(TaskAddResult, WritesIdAndExistingTask) {
    EXPECT_EQ(TaskAddResult().toJson(), R"({"id":0,"existingTask":false})");
    EXPECT_EQ(TaskAddResult(12, true).toJson(), R"({"id":12,"existingTask":true})");
}

TEST(Task, JsonOfATaskNotAddedHasNoQueue) {
    auto task = Testing::makeTask(
        "export \"daily\"", [](RunContext&) { return true; }, nullptr,
        TaskOptions().setReference("exp").setTag(4).setLogContext("ctx").setRetryCount(2));
    task->setProgress(40);
    EXPECT_EQ(task->toJson(), R"({"id":0,"name":"export \"daily\"","progress":40,"retried":0,)"
                              R"("options":{"logContext":"ctx","reference":"exp","tag":4}})");
    EXPECT_EQ(task->currentRun(), nullptr);
    EXPECT_EQ(task->queue(), nullptr);
    task->setReference("other");
    EXPECT_EQ(task->options().reference(), "other");
    EXPECT_EQ(task->options().retryCount(), 2);
}

TEST(TaskRun, DurationCountsOnlyOnceFinishedAndJsonNamesEveryField) {
    auto task = Testing::makeTask("t", [](RunContext&) { return true; });
    const TaskRun::TimePoint runAt(std::chrono::milliseconds(123456));
    TaskRun run(task, runAt);
    EXPECT_EQ(run.state(), TaskRun::Waiting);
    EXPECT_EQ(run.started(), TaskRun::TimePoint());
    EXPECT_EQ(run.duration(), 0ms);
    EXPECT_EQ(run.toJson(),
              R"({"task":)" + task->toJson() + R"(,"state":1,"runAt":123456,"started":0,"finished":0})");
    const TaskRun copy(run);
    EXPECT_EQ(copy.toJson(), run.toJson());
}

TEST(TaskRunInfo, JsonOfAnUnknownTask) {
    EXPECT_EQ(TaskRunInfo().toJson(), R"({"found":false,"taskId":0,"name":"","queue":"","state":0,"runAt":0,)"
                                      R"("started":0,"finished":0,"retried":0,"progress":0})");
}

} // namespace
} // namespace Zel::Tasks
