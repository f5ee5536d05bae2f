#include "TestHost.h"

#include <Zel/GenericException.h>
#include <Zel/InvalidOperationException.h>
#include <Zel/Log/ILog.h>
#include <Zel/Platform/DataStoreProxy.h>
#include <Zel/Platform/IServiceRegistry.h>
#include <Zel/Platform/MessagesProxy.h>
#include <Zel/Platform/PlatformLog.h>
#include <Zel/Platform/Plugin.h>
#include <Zel/Platform/ServiceException.h>
#include <gtest/gtest.h>
#include <set>
#include <stdexcept>

using Zel::Variant;
using Zel::Platform::Plugin;

namespace {

class Echo : public Zel::Platform::Service {
public:
    explicit Echo(std::string reference = "Echo") : Service(std::move(reference)) {
        addInterface("IEcho");
        on("echo", [](const Variant& params) { return params; });
    }
};

std::string invalidOperation(const char* function) {
    // The line differs per call site; everything before it is fixed.
    return std::string("Invalid operation | func=") + function + " | file=Zel/Platform/Plugin | line=";
}

std::shared_ptr<Plugin> configured() {
    auto plugin = std::make_shared<Plugin>();
    plugin->setName("P").setDescription("A test plug-in");
    plugin->setConfigured();
    return plugin;
}

} // namespace

TEST(PluginTest, EachOperationIsAllowedInOneStateOnly) {
    auto plugin = std::make_shared<Plugin>();
    const auto expectRefused = [&](const char* function, auto&& operation) {
        const auto state = plugin->state();
        const std::string message = messageOf(operation);
        EXPECT_EQ(message.rfind(invalidOperation(function), 0), 0u) << message;
        EXPECT_EQ(plugin->state(), state);
    };
    const auto refuseAllBut = [&](const std::set<std::string>& allowed) {
        SCOPED_TRACE("state " + std::to_string(static_cast<int>(plugin->state())));
        const auto refused = [&](const char* name) { return !allowed.contains(name); };
        if (refused("setOnInit")) expectRefused("setOnInit", [&] { plugin->setOnInit([] {}); });
        if (refused("setOnDeinit")) expectRefused("setOnDeinit", [&] { plugin->setOnDeinit([] {}); });
        if (refused("setConfigured")) expectRefused("setConfigured", [&] { plugin->setConfigured(); });
        if (refused("addService"))
            expectRefused("addService", [&] { plugin->addService(std::make_shared<Echo>("X")); });
        if (refused("init")) expectRefused("init", [&] { plugin->init(TestHost::initDocument()); });
        if (refused("call")) expectRefused("call", [&] { plugin->call("Echo", "echo", "{}"); });
        if (refused("deinit")) expectRefused("deinit", [&] { plugin->deinit(); });
    };

    EXPECT_EQ(plugin->state(), Plugin::State::Created);
    refuseAllBut({"setOnInit", "setOnDeinit", "setConfigured"});
    plugin->setName("P");
    plugin->setConfigured();
    EXPECT_EQ(plugin->state(), Plugin::State::Configured);
    refuseAllBut({"addService", "init"});
    plugin->addService(std::make_shared<Echo>());
    TestHost host([](auto&&...) { return std::string(R"({"result":0})"); });
    plugin->init(TestHost::initDocument());
    EXPECT_EQ(plugin->state(), Plugin::State::Initialized);
    refuseAllBut({"call", "deinit"});
    plugin->deinit();
    EXPECT_EQ(plugin->state(), Plugin::State::Deinitialized);
    refuseAllBut({});
}

TEST(PluginTest, InitReplyListsServicesInOrderAdded) {
    auto plugin = configured();
    plugin->addService(std::make_shared<Echo>("Zeta")).addService(std::make_shared<Echo>("Alpha"));
    plugin->addService(std::make_shared<Echo>("Zeta")); // a taken reference is ignored
    const Variant reply = plugin->init(R"({"platformCallback":"1f","other":true})");
    EXPECT_EQ(reply.toJson(),
              R"({"data":{"description":"A test plug-in","name":"P","quitEvent":0,"services":[)"
              R"({"interfaces":[],"reference":"Callbacks_P"},{"interfaces":["IEcho"],"reference":"Zeta"},)"
              R"({"interfaces":["IEcho"],"reference":"Alpha"}],"version":""},"result":0})");
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(
                  static_cast<Zel::Platform::ServiceCaller&>(plugin->serviceCaller()).platformCallback()),
              31u);
}

TEST(PluginTest, BadInitDocumentsLeaveThePluginConfigured) {
    const struct {
        const char* document;
        const char* message;
    } cases[] = {
        {R"({"platformCallback":"xyz"})", "invalid stoull argument"},
        {R"({"platformCallback":"1ffffffffffffffff"})", "stoull argument out of range"},
        {R"({"platformCallback":)", "Unexpected end"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.document);
        auto plugin = configured();
        EXPECT_EQ(messageOf([&] { plugin->init(c.document); }), c.message);
        EXPECT_EQ(plugin->state(), Plugin::State::Configured);
    }
}

TEST(PluginTest, OnInitRunsOnceBeforeTheCallbackIsKnown) {
    auto plugin = std::make_shared<Plugin>();
    std::string seenFromHandler;
    int runs = 0;
    plugin->setOnInit([&] {
        ++runs;
        seenFromHandler = messageOf([&] { plugin->serviceCaller().call("DataStore", "getKey", "{}"); });
    });
    plugin->setName("P").setConfigured();
    // The handler is spent even though this init fails afterwards.
    EXPECT_THROW(plugin->init("{}"), Zel::GenericException);
    TestHost host([](auto&&...) { return std::string(R"({"result":0,"data":1})"); });
    plugin->init(TestHost::initDocument());
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(seenFromHandler, "Platform plugin is not initialized");
    EXPECT_EQ(static_cast<int>(plugin->serviceCaller().call("S", "o", "{}")), 1);
}

TEST(PluginTest, CallDispatchesAndRefusesUnknownServices) {
    auto plugin = configured();
    plugin->addService(std::make_shared<Echo>());
    plugin->init(TestHost::initDocument());
    EXPECT_EQ(plugin->call("Echo", "echo", R"({"a":[1]})").toJson(), R"({"data":{"a":[1]},"result":0})");
    EXPECT_EQ(messageOf([&] { plugin->call("echo", "echo", "{}"); }), "Unknown service: echo");
    EXPECT_THROW(plugin->call("Echo", "nope", "{}"), Zel::Platform::ServiceException);
}

TEST(PluginTest, DeinitTearsDownAndStopsOutgoingCalls) {
    auto plugin = configured();
    auto echo = std::make_shared<Echo>();
    plugin->addService(echo);
    std::weak_ptr<Zel::Platform::CallbacksService> callbacks = plugin->callbacks();
    EXPECT_EQ(plugin->serviceLocator().get<Zel::Platform::CallbacksService>(), callbacks.lock());
    TestHost host([](auto&&...) { return std::string(R"({"result":0})"); });
    plugin->init(TestHost::initDocument());
    EXPECT_EQ(&echo->plugin(), plugin.get());
    echo.reset();

    plugin->deinit();
    EXPECT_TRUE(callbacks.expired());
    EXPECT_EQ(plugin->callbacks(), nullptr);
    EXPECT_EQ(plugin->serviceLocator().size(), 0u);
    EXPECT_EQ(plugin->factory().size(), 0u);
    EXPECT_EQ(messageOf([&] { plugin->serviceCaller().call("DataStore", "getKey", "{}"); }),
              "Platform plugin is not initialized");
}

TEST(PluginTest, FailingDeinitHandlerStillDeinitializes) {
    auto plugin = std::make_shared<Plugin>();
    plugin->setOnDeinit([] { throw std::runtime_error("handler failed"); });
    plugin->setConfigured();
    plugin->init(TestHost::initDocument());
    EXPECT_EQ(messageOf([&] { plugin->deinit(); }), "handler failed");
    EXPECT_EQ(plugin->state(), Plugin::State::Deinitialized);
    EXPECT_EQ(plugin->callbacks(), nullptr);
}

TEST(PluginTest, FactoriesMakeHostProxiesBoundToTheCaller) {
    std::vector<std::string> calls;
    TestHost host([&](const std::string& service, const std::string& operation, const std::string& params) {
        calls.push_back(service + "." + operation + " " + params);
        if (operation == "lookup") return std::string(R"({"result":0,"data":["Notes"]})");
        if (operation == "send") return std::string(R"({"result":0,"data":4})");
        return std::string(R"({"result":0})");
    });
    auto plugin = configured();
    plugin->init(TestHost::initDocument());
    EXPECT_TRUE(plugin->create<Zel::Platform::DataStoreProxy>()->getKey("k").isNull());
    EXPECT_EQ(plugin->create<Zel::Platform::IServiceRegistry>()->lookup("INotes"),
              std::vector<std::string>{"Notes"});
    EXPECT_EQ(plugin->create<Zel::Platform::MessagesProxy>()->send("ops", "hi"), 4);
    plugin->create<Zel::Platform::PlatformLog>()->log(Zel::Log::Level::Warning, "careful");
    const auto log = plugin->create<Zel::Log::ILog>();
    log->setMinimalLevel(Zel::Log::Level::Info);
    log->debug("filtered out");
    log->error("Disk full | free=0", "{\"disk\":\"c\"}");
    ASSERT_EQ(calls.size(), 5u);
    EXPECT_EQ(calls[0], R"(DataStore.getKey {"key":"k"})");
    EXPECT_EQ(calls[1], R"(ServiceRegistry.lookup {"interface":"INotes"})");
    EXPECT_EQ(calls[2], R"(Messages.send {"channel":"ops","text":"hi","data":null})");
    EXPECT_EQ(calls[3], R"(PlatformLog.log {"level":"Warning","message":"careful"})");
    EXPECT_EQ(calls[4].rfind(R"(PlatformLog.log {"level":"Error","message":"Disk full | free=0",)"
                             R"("data":"{\"disk\":\"c\"}","source":"PluginTest.cpp:)",
                             0),
              0u)
        << calls[4];
}

TEST(PluginTest, CallbacksServiceIsListedEvenAloneAndRunsCallbacksById) {
    auto plugin = configured();
    EXPECT_EQ(plugin->init(TestHost::initDocument())["data"]["services"].toJson(),
              R"([{"interfaces":[],"reference":"Callbacks_P"}])");
    Variant received;
    const auto operation = plugin->callbacks()->add([&](const Variant& params) { received = params; });
    EXPECT_EQ(operation.service, "Callbacks_P");
    EXPECT_EQ(operation.operation, "runCallback");
    EXPECT_EQ(operation.params, R"({"callbackId":1})");
    plugin->call(operation.service, operation.operation, R"({"callbackId":1,"event":"e"})");
    EXPECT_EQ(received.toJson(), R"({"callbackId":1,"event":"e"})");
    EXPECT_TRUE(plugin->callbacks()->remove(1));
    try {
        plugin->call("Callbacks_P", "runCallback", R"({"callbackId":1})");
        FAIL();
    } catch (const Zel::Platform::ServiceException& error) {
        EXPECT_EQ(error.message(), "Callback not found | callbackId=1");
        EXPECT_EQ(error.errorRef(), "callbackNotFound");
    }
}
