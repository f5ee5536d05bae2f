#include <Zel/Console/Application.h>
#include <csignal>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>

namespace {

using namespace std::chrono_literals;

// Waits for a stop after telling the test it is running; other modes exercise the exit codes.
class Waiter : public Zel::Console::Application {
public:
    Waiter() : Application("waiter", "Waits for a stop") {
        commandLine()
            .option("mode", Zel::Console::ValueType::String, "wait, fail, code")
            .defaultValue("wait");
    }

    std::promise<void> started;
    int stopCallbacks = 0;

protected:
    int run(const Zel::Console::Arguments& arguments) override {
        const auto mode = arguments.string("mode");
        if (mode == "fail") throw std::runtime_error("disk full | path=/tmp/x");
        if (mode == "code") return 7;
        started.set_value();
        waitForStop();
        return stopToken().stop_requested() ? 0 : 3;
    }
    void onStopRequested() noexcept override { ++stopCallbacks; }
};

TEST(Application, SigtermStopsTheRunningApplication) {
    for (const int signal : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signal);
        Waiter app;
        std::ostringstream out;
        std::ostringstream err;
        auto started = app.started.get_future();
        auto exit = std::async(std::launch::async, [&] { return app.main({}, out, err); });
        ASSERT_EQ(started.wait_for(30s), std::future_status::ready);
        ASSERT_EQ(std::raise(signal), 0);
        ASSERT_EQ(exit.wait_for(30s), std::future_status::ready);
        EXPECT_EQ(exit.get(), 0);
        EXPECT_EQ(app.stopSignal(), signal);
        EXPECT_EQ(app.stopCallbacks, 1);
        EXPECT_EQ(err.str(), "");
    }
    // The handlers are gone again: the previous disposition (here: ignore) is back.
    auto* previous = std::signal(SIGTERM, SIG_IGN);
    EXPECT_EQ(previous, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}

TEST(Application, RequestStopFromAnotherThreadIsIdempotent) {
    Waiter app;
    std::ostringstream out;
    std::ostringstream err;
    auto started = app.started.get_future();
    auto exit = std::async(std::launch::async, [&] { return app.main({"--mode=wait"}, out, err); });
    ASSERT_EQ(started.wait_for(30s), std::future_status::ready);
    EXPECT_FALSE(app.waitForStop(1ms));
    app.requestStop();
    app.requestStop();
    ASSERT_EQ(exit.wait_for(30s), std::future_status::ready);
    EXPECT_EQ(exit.get(), 0);
    EXPECT_EQ(app.stopSignal(), 0);
    EXPECT_EQ(app.stopCallbacks, 1);
    EXPECT_TRUE(app.waitForStop(0ms));
}

TEST(Application, MapsOutcomesToExitCodes) {
    struct Row {
        std::vector<std::string> arguments;
        int code;
        const char* out;
        const char* err;
    };
    const Row rows[] = {
        {{"--mode=code"}, 7, "", ""},
        {{"--mode=fail"}, 1, "", "waiter: Error: disk full | path=/tmp/x\n"},
        {{"--mdoe=fail"},
         2,
         "",
         "waiter: Unknown option | option=--mdoe | suggestion=--mode\nTry 'waiter --help' for more "
         "information.\n"},
        {{"extra"},
         2,
         "",
         "waiter: Unexpected argument | argument=extra\nTry 'waiter --help' for more information.\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.arguments));
        Waiter app;
        std::ostringstream out;
        std::ostringstream err;
        EXPECT_EQ(app.main(row.arguments, out, err), row.code);
        EXPECT_EQ(out.str(), row.out);
        EXPECT_EQ(err.str(), row.err);
    }
    Waiter app;
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(app.main({"--help"}, out, err), 0);
    EXPECT_THAT(out.str(), testing::StartsWith("Usage: waiter [options]\n\nWaits for a stop\n"));
}

} // namespace
