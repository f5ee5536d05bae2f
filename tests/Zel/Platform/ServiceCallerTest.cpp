#include "TestHost.h"

#include <Zel/GenericException.h>
#include <Zel/Json/ParserException.h>
#include <Zel/Platform/DataStoreProxy.h>
#include <Zel/Platform/EventsProxy.h>
#include <Zel/Platform/ServiceCaller.h>
#include <Zel/Platform/ServiceException.h>
#include <Zel/VariantInvalidOperationException.h>
#include <gtest/gtest.h>

using Zel::Variant;
using Zel::Platform::ServiceCaller;
using Zel::Platform::ServiceException;

TEST(ServiceCallerTest, WithoutCallbackTheCallFails) {
    const ServiceCaller caller;
    EXPECT_EQ(messageOf<Zel::GenericException>([&] { caller.call("DataStore", "getKey", "{}"); }),
              "Platform plugin is not initialized");
}

TEST(ServiceCallerTest, PassesExactStringsAndReturnsData) {
    std::string seen;
    TestHost host([&](const std::string& service, const std::string& operation, const std::string& params) {
        seen = service + "|" + operation + "|" + params;
        return R"({"result":0,"data":{"v":[1,2]}})";
    });
    const ServiceCaller caller(TestHost::platformCallback());
    // Substrings without a terminating zero at their end: only the lengths may be relied on.
    const std::string buffer = "DataStoreXgetKeyY{\"key\":\"a\"}Z";
    EXPECT_EQ(caller.call(buffer.substr(0, 9), buffer.substr(10, 6), buffer.substr(17, 11)).toJson(),
              R"({"v":[1,2]})");
    EXPECT_EQ(seen, R"(DataStore|getKey|{"key":"a"})");
}

TEST(ServiceCallerTest, ReadsTheReplyEnvelope) {
    std::string reply;
    TestHost host([&](const std::string&, const std::string&, const std::string&) { return reply; });
    const ServiceCaller caller(TestHost::platformCallback());

    const struct {
        const char* reply;
        const char* data;
    } successes[] = {
        {R"({"result":0})", "null"},
        {R"({"result":0,"data":5})", "5"},
        {R"({"result":2,"data":"two"})", R"("two")"}, // only 1359 is a failure
        {R"({"data":true})", "true"},
        {R"({"result":"1359","data":1})", "1"},
    };
    for (const auto& c : successes) {
        SCOPED_TRACE(c.reply);
        reply = c.reply;
        EXPECT_EQ(caller.call("S", "o", "{}").toJson(), c.data);
    }

    reply = R"({"result":1359,"errMsg":"No such key"})";
    try {
        caller.call("S", "o", "{}");
        FAIL();
    } catch (const ServiceException& error) {
        EXPECT_EQ(error.message(), "No such key");
        EXPECT_EQ(error.errorRef(), "internalServerError");
        EXPECT_TRUE(error.data().isNull());
    }

    reply = "[1,2]";
    const std::string notAnObject =
        messageOf<Zel::VariantInvalidOperationException>([&] { caller.call("S", "o", "{}"); });
    EXPECT_NE(notAnObject.find("Zel::Variant::contains"), std::string::npos) << notAnObject;

    // A malformed reply fails as JSON; its buffer is still released (the ASan run checks leaks).
    reply = R"({"result":0,"data":)";
    EXPECT_THROW(caller.call("S", "o", "{}"), Zel::Json::ParserException);
    reply = "";
    EXPECT_THROW(caller.call("S", "o", "{}"), Zel::Json::ParserException);
}

TEST(ServiceCallerTest, ProxiesWriteCompactParams) {
    std::vector<std::string> calls;
    TestHost host([&](const std::string& service, const std::string& operation, const std::string& params) {
        calls.push_back(service + "." + operation + " " + params);
        if (operation == "listKeys") return std::string(R"({"result":0,"data":["a","b"]})");
        if (operation == "subscribe") return std::string(R"({"result":0,"data":7})");
        return std::string(R"({"result":0,"data":true})");
    });
    const ServiceCaller caller(TestHost::platformCallback());
    const Zel::Platform::DataStoreProxy store(caller);
    Variant value = Variant::makeMap();
    value.setAt("n", 1.5);
    store.setKey("k\"1", value);
    EXPECT_TRUE(store.removeKey("k"));
    EXPECT_EQ(store.listKeys("p/"), (std::vector<std::string>{"a", "b"}));
    const Zel::Platform::EventsProxy events(caller);
    EXPECT_EQ(events.subscribe("e", {"Callbacks_P", "runCallback", R"({"callbackId":3})"}), 7);

    EXPECT_EQ(calls, (std::vector<std::string>{
                         R"(DataStore.setKey {"key":"k\"1","value":{"n":1.5}})",
                         R"(DataStore.removeKey {"key":"k"})",
                         R"(DataStore.listKeys {"prefix":"p/"})",
                         R"(Events.subscribe {"event":"e","callback":{"service":"Callbacks_P",)"
                         R"("operation":"runCallback","params":{"callbackId":3}}})",
                     }));
}
