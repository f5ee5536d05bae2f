#include <Zel/InvalidOperationException.h>
#include <Zel/Json/Json.h>
#include <Zel/Json/ParserException.h>
#include <Zel/Platform/Service.h>
#include <Zel/Platform/ServiceException.h>
#include <Zel/Platform/StartableService.h>
#include <gtest/gtest.h>

using Zel::Variant;
using Zel::Platform::ServiceException;

namespace {

struct Point {
    int x = 0;
    int y = 0;
    static Point fromDto(const Variant& dto) { return Point{dto["x"], dto["y"]}; }
};

class Pair : public Zel::Json::IJsonable {
public:
    std::string toJson() const override { return "[1,2]"; }
};

// Exposes the protected declaration to the tests.
class TestService : public Zel::Platform::Service {
public:
    TestService() : Service("Test") {
        on("sum", [](const Variant& params) { return int(params["a"]) + int(params["b"]); });
        on("nothing", []() {});
        on("text", [](const std::string& text) { return text + "!"; });
        on("point", [](const Point& point) { return point.x * 10 + point.y; });
        on("jsonable", []() { return Pair(); });
        on("params", [](Variant params) { return params; });
        on("fail", [](const Variant&) -> Variant { throw ServiceException("bad", "Bad thing | x=1"); });
        addOperation("raw", [](const std::string& params) { return Variant("raw:" + params); });
    }
    using Service::addOperation;
};

} // namespace

TEST(ServiceTest, TypedHandlersBuildTheirReplies) {
    TestService service;
    const struct {
        const char* operation;
        const char* params;
        const char* reply;
    } cases[] = {
        {"sum", R"({"a":1,"b":2})", R"({"data":3,"result":0})"},
        {"nothing", "garbage is never parsed", R"({"result":0})"},
        {"text", R"("hi")", R"({"data":"hi!","result":0})"},
        {"point", R"({"x":4,"y":2})", R"({"data":42,"result":0})"},
        {"params", "", R"({"data":{},"result":0})"},
        {"params", "[1,null]", R"({"data":[1,null],"result":0})"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.operation) + " " + c.params);
        EXPECT_EQ(service.call(c.operation, c.params).toJson(), c.reply);
    }
    // An IJsonable result is embedded as its text: the reply is a string holding finished JSON.
    const Variant jsonable = service.call("jsonable", "{}");
    ASSERT_TRUE(jsonable.isString());
    EXPECT_EQ(static_cast<std::string>(jsonable), R"({"result":0,"data":[1,2]})");
    EXPECT_EQ(static_cast<std::string>(service.call("raw", "{\"k\":1}")), "raw:{\"k\":1}");
}

TEST(ServiceTest, ParserAndHandlerErrorsPassUnchangedAndUnknownOperationsAreNamed) {
    TestService service;
    EXPECT_THROW(service.call("sum", "{\"a\":"), Zel::Json::ParserException);
    try {
        service.call("fail", "{}");
        FAIL();
    } catch (const ServiceException& error) {
        EXPECT_EQ(error.message(), "Bad thing | x=1");
        EXPECT_EQ(error.errorRef(), "bad");
    }
    try {
        service.call("Sum", "{}"); // names are case-sensitive
        FAIL();
    } catch (const ServiceException& error) {
        EXPECT_EQ(error.message(), "Unknown operation | Test.Sum");
        EXPECT_EQ(error.errorRef(), "Test");
        EXPECT_TRUE(error.data().isNull());
        EXPECT_EQ(error.operation().service, "");
    }
}

TEST(ServiceTest, SecondRegistrationReplacesTheFirst) {
    TestService service;
    service.addOperation("sum", [](const std::string&) { return Variant("second"); });
    EXPECT_EQ(static_cast<std::string>(service.call("sum", "{}")), "second");
}

TEST(ServiceTest, InterfacesAreCopiesAndPluginIsRequired) {
    TestService service;
    service.addInterface("ITest").addInterface("IOther");
    Variant interfaces = service.interfaces();
    interfaces.push_back(Variant("ISneaky"));
    EXPECT_EQ(service.interfaces().toJson(), R"(["ITest","IOther"])");
    EXPECT_THROW(service.plugin(), Zel::InvalidOperationException);
}

namespace {
class Clock : public Zel::Platform::StartableService {
public:
    Clock() : StartableService("Clock") {
        on("now", []() { return 12; });
    }
    int starts = 0;
    int stops = 0;

protected:
    void onStart() override { ++starts; }
    void onStop() override { ++stops; }
};
} // namespace

TEST(ServiceTest, StartableServiceRefusesWhileStopped) {
    Clock clock;
    const auto expectNotStarted = [&] {
        try {
            clock.call("now", "{}");
            FAIL();
        } catch (const ServiceException& error) {
            EXPECT_EQ(error.message(), "Service is not started | reference=Clock");
            EXPECT_EQ(error.errorRef(), "serviceNotStarted");
        }
    };
    expectNotStarted();
    clock.start();
    clock.start();
    EXPECT_EQ(clock.call("now", "{}").toJson(), R"({"data":12,"result":0})");
    clock.stop();
    clock.stop();
    expectNotStarted();
    EXPECT_EQ(clock.starts, 1);
    EXPECT_EQ(clock.stops, 1);
}
