#include "TestHost.h"

#include <Zel/Json/Json.h>
#include <Zel/Platform/PluginModule.h>
#include <Zel/Platform/ServiceException.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <vector>

using Zel::Variant;

namespace {

class Math : public Zel::Platform::Service {
public:
    Math() : Service("Math") {
        on("sum",
           [](const Variant& params) { return std::int64_t(params["a"]) + std::int64_t(params["b"]); });
        on("refuse", []() -> Variant {
            throw Zel::Platform::ServiceException("tooBig", "Too big | limit=10", Variant(10));
        });
        on("fail", []() -> Variant { throw std::runtime_error("disk on fire"); });
        on("throwInt", []() -> Variant { throw 42; });
        on("text", []() { return Variant("plain"); });
        // Asks the host and passes its answer on.
        on("ask", [this]() { return plugin().serviceCaller().call("Oracle", "answer", "{}"); });
    }
};

int pluginsCreated = 0;

std::shared_ptr<Zel::Platform::Plugin> createPlugin() {
    ++pluginsCreated;
    auto plugin = std::make_shared<Zel::Platform::Plugin>();
    plugin->setName("M").setConfigured();
    plugin->addService(std::make_shared<Math>());
    return plugin;
}

} // namespace

ZEL_PLUGIN_MODULE(createPlugin)

namespace {

std::string initModule(const std::string& document) {
    char* reply = nullptr;
    std::uint64_t length = 0;
    zelPluginInit(document.data(), document.size(), &reply, &length);
    const Zel::Platform::ReplyPointer owned(reply);
    return std::string(reply, length);
}

std::string callModule(const std::string& service, const std::string& operation, const std::string& params) {
    char* reply = nullptr;
    std::uint64_t length = 0;
    zelPluginCall(service.data(), service.size(), operation.data(), operation.size(), params.data(),
                  params.size(), &reply, &length);
    const Zel::Platform::ReplyPointer owned(reply);
    return std::string(reply, length);
}

std::string deinitModule() {
    char* reply = nullptr;
    std::uint64_t length = 0;
    zelPluginDeinit(&reply, &length);
    const Zel::Platform::ReplyPointer owned(reply);
    return std::string(reply, length);
}

} // namespace

// One test drives the module's whole life, since the module holds one plug-in for the process.
TEST(PluginModuleTest, EntryPointsTurnEverythingIntoReplies) {
    EXPECT_EQ(callModule("Math", "sum", "{}"),
              R"({"result":1359,"errMsg":"Platform plugin is not initialized"})");

    TestHost host([](const std::string& service, const std::string&, const std::string&) {
        return service == "Oracle" ? std::string(R"({"result":0,"data":42})")
                                   : std::string(R"({"result":1359,"errMsg":"Unknown service"})");
    });
    const std::string init = initModule(TestHost::initDocument());
    EXPECT_EQ(Zel::Json::parse(init)["result"], Variant(0)) << init;

    const struct {
        const char* service;
        const char* operation;
        const char* params;
        const char* reply;
    } cases[] = {
        {"Math", "sum", R"({"a":1,"b":2})", R"({"data":3,"result":0})"},
        {"Math", "text", "{}", R"({"data":"plain","result":0})"},
        {"Math", "ask", "{}", R"({"data":42,"result":0})"},
        {"Math", "refuse", "{}",
         R"({"result":1359,"errMsg":"Too big | limit=10","errRef":"tooBig","data":10,"service":"Math","operation":"refuse"})"},
        {"Math", "fail", "{}", R"({"result":1359,"errMsg":"disk on fire"})"},
        {"Math", "throwInt", "{}", R"({"result":1359,"errMsg":"Unknown exception"})"},
        {"Math", "sum", R"({"a":1,)", R"({"result":1359,"errMsg":"Unexpected end"})"},
        {"Nope", "sum", "{}", R"({"result":1359,"errMsg":"Unknown service: Nope"})"},
        {"Math", "nope", "{}",
         R"({"result":1359,"errMsg":"Unknown operation | Math.nope","errRef":"Math","data":null,"service":"Math","operation":"nope"})"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.service) + "." + c.operation + " " + c.params);
        EXPECT_EQ(callModule(c.service, c.operation, c.params), c.reply);
    }

    // The Variant's own type error, as any other std::exception.
    const std::string typeError = callModule("Math", "sum", R"({"a":"x","b":2})");
    EXPECT_EQ(typeError.rfind(R"({"result":1359,"errMsg":")", 0), 0u) << typeError;
    EXPECT_NE(typeError.find("Zel::Variant::operator __int64"), std::string::npos) << typeError;

    // A second init of a running plug-in is refused, and the plug-in keeps running.
    EXPECT_NE(initModule(TestHost::initDocument()).find("func=init"), std::string::npos);

    EXPECT_EQ(deinitModule(), R"({"result":0})");
    EXPECT_NE(callModule("Math", "sum", R"({"a":1,"b":2})").find("Invalid operation | func=call"),
              std::string::npos);
    EXPECT_NE(deinitModule().find("func=deinit"), std::string::npos);

    // After a deinit, init starts a fresh plug-in.
    const int created = pluginsCreated;
    EXPECT_EQ(Zel::Json::parse(initModule(TestHost::initDocument()))["result"], Variant(0));
    EXPECT_EQ(pluginsCreated, created + 1);
    EXPECT_EQ(callModule("Math", "sum", R"({"a":20,"b":22})"), R"({"data":42,"result":0})");

    // Many host threads at once, each with its own numbers, incoming and outgoing.
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([t, &wrong] {
            for (int i = 0; i < 2000; ++i) {
                const std::string params =
                    R"({"a":)" + std::to_string(t) + R"(,"b":)" + std::to_string(i) + "}";
                if (callModule("Math", "sum", params) !=
                    R"({"data":)" + std::to_string(t + i) + R"(,"result":0})")
                    ++wrong;
                if (i % 100 == 0 && callModule("Math", "ask", "{}") != R"({"data":42,"result":0})") ++wrong;
            }
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(wrong.load(), 0);
    EXPECT_EQ(deinitModule(), R"({"result":0})");
}
