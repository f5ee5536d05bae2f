// The host's services through the real boundary: two plug-ins (copies of the probe module) and the
// host's own session, on the embedded database in a data directory of the test's own.

#include "HostProcess.h"

#include <Zel/Json/Json.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

namespace {

class HostServicesTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::remove_all(m_directory);
        std::filesystem::create_directories(m_directory);
        // A copy loads as a plug-in of its own, named after its file.
        std::filesystem::copy_file(ZEL_PROBE_MODULE_PATH, m_directory + "/probe-b.so");
    }
    void TearDown() override { std::filesystem::remove_all(m_directory); }

    std::string path(const std::string& name) const { return m_directory + "/" + name; }
    std::string errors() const {
        std::stringstream text;
        text << std::ifstream(path("errors.txt")).rdbuf();
        return text.str();
    }

    const std::string m_directory = ::testing::TempDir() + "zel-host-services-" + std::to_string(getpid());
};

std::string error(const std::string& message, const std::string& errRef, const std::string& service,
                  const std::string& operation) {
    return R"({"result":1359,"errMsg":")" + message + R"(","errRef":")" + errRef +
           R"(","data":null,"service":")" + service + R"(","operation":")" + operation + R"("})";
}

// Through plug-in A ("zel-probe"): its call to the host, as A.
std::string viaA(const std::string& service, const std::string& operation, const std::string& params) {
    return R"(zel-probe.call {"service":")" + service + R"(","operation":")" + operation + R"(","params":)" +
           params + "}";
}
std::string viaB(const std::string& service, const std::string& operation, const std::string& params) {
    return R"(probe-b.call {"service":")" + service + R"(","operation":")" + operation + R"(","params":)" +
           params + "}";
}

} // namespace

TEST_F(HostServicesTest, TransactionsRoutingAndErrorReplies) {
    HostProcess host(
        {ZEL_PROBE_MODULE_PATH, path("probe-b.so"), "--data", path("data"), "--set", "cache.capacity=3"}, {},
        path("errors.txt"));
    ASSERT_EQ(Zel::Json::parse(host.readLine())["data"]["name"], Zel::Variant("zel-probe")) << errors();
    ASSERT_EQ(Zel::Json::parse(host.readLine())["data"]["name"], Zel::Variant("probe-b")) << errors();

    const struct {
        std::string call;
        std::string reply;
    } script[] = {
        // Transaction 1, A's: invisible to others until committed.
        {viaA("DataStore", "beginTransaction", "{}"), R"({"data":1,"result":0})"},
        {viaA("DataStore", "setKey", R"({"key":"a/1","value":{"x":[1,"y"]},"transactionId":1})"),
         R"({"data":null,"result":0})"},
        {viaA("DataStore", "getKey", R"({"key":"a/1","transactionId":1})"),
         R"({"data":{"x":[1,"y"]},"result":0})"},
        {R"(DataStore.getKey {"key":"a/1"})", R"({"data":null,"result":0})"},
        {viaB("DataStore", "setKey", R"({"key":"b/1","value":2,"transactionId":1})"),
         error("The transaction belongs to another plug-in | transactionId=1", "forbidden", "DataStore",
               "setKey")},
        {viaA("DataStore", "commitTransaction", R"({"transactionId":1})"), R"({"data":null,"result":0})"},
        {R"(DataStore.getKey {"key":"a/1"})", R"({"data":{"x":[1,"y"]},"result":0})"},
        {viaA("DataStore", "commitTransaction", R"({"transactionId":1})"),
         error("Unknown transaction | transactionId=1", "unknownTransaction", "DataStore",
               "commitTransaction")},
        // Transaction 2, rolled back: leaves nothing.
        {viaA("DataStore", "beginTransaction", "{}"), R"({"data":2,"result":0})"},
        {viaA("DataStore", "setKey", R"({"key":"a/2","value":2,"transactionId":2})"),
         R"({"data":null,"result":0})"},
        {viaA("DataStore", "removeKey", R"({"key":"a/1","transactionId":2})"), R"({"data":true,"result":0})"},
        {viaA("DataStore", "listKeys", R"({"prefix":"a/","transactionId":2})"),
         R"({"data":["a/2"],"result":0})"},
        {viaA("DataStore", "rollbackTransaction", R"({"transactionId":2})"), R"({"data":null,"result":0})"},
        {R"(DataStore.listKeys {"prefix":"a/"})", R"({"data":["a/1"],"result":0})"},
        // Bad parameters and unknown names.
        {R"(DataStore.setKey {"key":5,"value":1})",
         error("Bad parameter | name=key", "badRequest", "DataStore", "setKey")},
        {R"(DataStore.getKey {"key":"a/1","transactionId":"1"})",
         error("Bad parameter | name=transactionId", "badRequest", "DataStore", "getKey")},
        {R"(DataStore.getKey {"key":"a/1","transactionId":99})",
         error("Unknown transaction | transactionId=99", "unknownTransaction", "DataStore", "getKey")},
        {R"(DataStore.listKeys {"prefix":7})",
         error("Bad parameter | name=prefix", "badRequest", "DataStore", "listKeys")},
        {R"(DataStore.drop {})",
         error("Unknown operation | DataStore.drop", "DataStore", "DataStore", "drop")},
        {viaA("Nowhere", "x", "{}"), error("Unknown service: Nowhere", "unknownService", "Nowhere", "x")},
        {R"(Tasks.addTask {"queue":"nope","callback":{"service":"x","operation":"y"}})",
         error("Unknown queue | queue=nope", "badRequest", "Tasks", "addTask")},
        // One plug-in calling another through the host; the other's failures come back as replies.
        {viaA("probe-b", "call",
              R"({"service":"ServiceRegistry","operation":"lookup","params":{"interface":"IProbe"}})"),
         R"({"data":["probe-b","zel-probe"],"result":0})"},
        {viaA("probe-b", "throw", "{}"),
         R"({"result":1359,"errMsg":"Probe failed on purpose","errRef":"internalServerError","data":null,"service":"zel-probe","operation":"call"})"},
        {viaA("probe-b", "malformed", "{}"),
         error("The plug-in returned a malformed reply | module=" + path("probe-b.so"), "badReply", "probe-b",
               "malformed")},
        {R"(PlatformLog.log {"level":"Notice","message":"into the log file"})", R"({"result":0})"},
        {R"(PlatformLog.log {"level":"Loud","message":"x"})",
         error("Bad parameter | name=level", "badRequest", "PlatformLog", "log")},
        {R"(Messages.send {"channel":"ops","text":"hello","data":{"n":1}})", R"({"data":1,"result":0})"},
        {R"(Messages.list {"channel":"ops"})",
         R"({"data":[{"data":{"n":1},"id":1,"text":"hello"}],"result":0})"},
        // The cache: least recently used out at capacity 3, time to live, counters.
        {R"(Cache.set {"key":"c1","value":[1]})", R"({"result":0})"},
        {R"(Cache.set {"key":"c2","value":2,"ttlMs":60000})", R"({"result":0})"},
        {R"(Cache.set {"key":"c3","value":3})", R"({"result":0})"},
        {R"(Cache.get {"key":"c1"})", R"({"data":[1],"result":0})"},
        {R"(Cache.set {"key":"c4","value":4})", R"({"result":0})"},
        {R"(Cache.get {"key":"c2"})", R"({"data":null,"result":0})"},
        {R"(Cache.set {"key":"c5","value":5,"ttlMs":-1})",
         error("Bad parameter | name=ttlMs", "badRequest", "Cache", "set")},
        {R"(Cache.set {"key":"c5","value":5,"ttlMs":1})", R"({"result":0})"},
    };
    for (const auto& step : script) {
        SCOPED_TRACE(step.call);
        EXPECT_EQ(host.call(step.call), step.reply) << errors();
    }
    // Past its time to live of 1 ms: the sleep only makes sure that much time has gone by.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(host.call(R"(Cache.get {"key":"c5"})"), R"({"data":null,"result":0})");
    EXPECT_EQ(
        host.call(R"(Cache.metrics {})"),
        R"({"data":{"capacity":3,"evictions":2,"expirations":1,"hits":1,"misses":2,"size":2},"result":0})");
    for (const std::string& report : {"zel-host: plug-in module " + path("probe-b.so") +
                                          " returned a malformed reply to probe-b.malformed",
                                      "zel-host: plug-in module " + path("probe-b.so") +
                                          " failed in probe-b.throw: \"Probe failed on purpose\""})
        EXPECT_NE(errors().find(report), std::string::npos) << report << "\n" << errors();

    // A task calls plug-in A back later; A's call then writes as A.
    EXPECT_EQ(
        host.call(viaA(
            "Tasks", "addTask",
            R"({"queue":"default","delayMs":50,"reference":"r","callback":{"service":"zel-probe","operation":"call",)"
            R"("params":{"service":"DataStore","operation":"setKey","params":{"key":"fired","value":1}}}})")),
        R"({"data":{"existingTask":false,"taskId":1},"result":0})");
    ASSERT_TRUE(host.awaitReply(R"(DataStore.getKey {"key":"fired"})", R"({"data":1,"result":0})"))
        << "the task never fired";

    // A transaction left open at exit is rolled back.
    EXPECT_EQ(host.call(viaB("DataStore", "beginTransaction", "{}")), R"({"data":3,"result":0})");
    EXPECT_EQ(host.call(viaB("DataStore", "setKey", R"({"key":"open","value":1,"transactionId":3})")),
              R"({"data":null,"result":0})");
    std::vector<std::string> rest;
    EXPECT_EQ(host.finish(&rest), 0) << errors();
    EXPECT_EQ(rest, (std::vector<std::string>{R"({"result":0})", R"({"result":0})"}));

    std::stringstream log;
    log << std::ifstream(path("data") + "/zel-host.log").rdbuf();
    EXPECT_NE(log.str().find("into the log file"), std::string::npos) << log.str();

    HostProcess again({"--data", path("data")});
    EXPECT_EQ(again.call(R"(DataStore.listKeys {})"), R"({"data":["a/1","fired"],"result":0})");
    EXPECT_EQ(again.call(R"(Messages.list {"channel":"ops"})"),
              R"({"data":[{"data":{"n":1},"id":1,"text":"hello"}],"result":0})");
    EXPECT_EQ(again.finish(), 0);
}

TEST_F(HostServicesTest, AnIdleTransactionIsRolledBack) {
    HostProcess host(
        {ZEL_PROBE_MODULE_PATH, "--data", path("data"), "--set", "dataStore.transactionIdleSeconds=0.2"}, {},
        path("errors.txt"));
    host.readLine();
    EXPECT_EQ(host.call(viaA("DataStore", "beginTransaction", "{}")), R"({"data":1,"result":0})");
    EXPECT_EQ(host.call(viaA("DataStore", "setKey", R"({"key":"idle","value":1,"transactionId":1})")),
              R"({"data":null,"result":0})");
    ASSERT_TRUE(host.awaitReply("DataStore.openTransactions {}", R"({"data":0,"result":0})"))
        << "the idle transaction stayed";
    EXPECT_EQ(host.call(viaA("DataStore", "getKey", R"({"key":"idle","transactionId":1})")),
              error("Unknown transaction | transactionId=1", "unknownTransaction", "DataStore", "getKey"));
    EXPECT_EQ(host.call(R"(DataStore.getKey {"key":"idle"})"), R"({"data":null,"result":0})");
}

TEST_F(HostServicesTest, BadConfigurationAndModulesAreReportedByName) {
    std::ofstream(path("malformed.json")) << R"({"threads": 4,)";
    std::ofstream(path("types.json")) << R"({"threads": "four"})";
    std::ofstream(path("twice.json")) << R"({"plugins": [")" << ZEL_PROBE_MODULE_PATH << R"(", {"module": ")"
                                      << ZEL_PROBE_MODULE_PATH << R"("}]})";
    std::ofstream(path("contradictory.json"))
        << R"({"database": {"connection": "db:/x.fdb", "forcedWrites": false}})";
    std::ofstream(path("missing.json"))
        << R"({"plugins": ["/nonexistent/zel-x.so", ")" << ZEL_PROBE_MODULE_PATH << R"("]})";
    const struct {
        std::string name;
        std::string arguments;   // words
        std::string environment; // words
        int status;
        std::string message;
    } cases[] = {
        {"malformed", "--config " + path("malformed.json"), "", 2,
         "zel-host: Config: malformed JSON | error=Unexpected end | source=" + path("malformed.json")},
        {"wrong type", "--config " + path("types.json"), "", 2,
         "zel-host: Config: expected an integer | found=\"four\" | path=threads | source=" +
             path("types.json")},
        {"environment", "", "ZEL_THREADS=0", 2,
         "zel-host: Config: out of range | expected=1..256 | found=0 | path=threads | source=environment "
         "ZEL_THREADS"},
        {"module twice", "--config " + path("twice.json"), "", 2,
         "zel-host: Config: a module is listed twice | module=" + std::string(ZEL_PROBE_MODULE_PATH) +
             " | path=plugins | source=" + path("twice.json")},
        {"contradictory", "--config " + path("contradictory.json"), "", 2,
         "zel-host: Config: applies to the embedded database only, not to database.connection (set it on the "
         "database itself) | path=database.forcedWrites | source=" +
             path("contradictory.json")},
        {"bad --set", "--set threads", "", 2, "zel-host: Config: expected path=value | argument=threads"},
        {"missing module, the other runs", "--config " + path("missing.json"), "", 1,
         "zel-host: cannot load plug-in module /nonexistent/zel-x.so: "},
        {"refused init", ZEL_PROBE_MODULE_PATH, "ZEL_PROBE_REFUSE_INIT=1", 2,
         "zel-host: plug-in module " + std::string(ZEL_PROBE_MODULE_PATH) +
             " refused init: Probe refuses init"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::filesystem::remove(path("errors.txt"));
        HostProcess host(words(c.arguments + " --data " + path("data")), words(c.environment),
                         path("errors.txt"));
        if (c.status == 1) {
            EXPECT_EQ(Zel::Json::parse(host.readLine())["data"]["name"], Zel::Variant("zel-probe"));
            EXPECT_EQ(host.call(viaA("DataStore", "getKey", R"({"key":"k"})")),
                      R"({"data":null,"result":0})");
        }
        EXPECT_EQ(host.finish(), c.status);
        EXPECT_NE(errors().find(c.message), std::string::npos) << errors();
    }
}
