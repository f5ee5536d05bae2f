#include <Zel/Config/ConfigException.h>
#include <Zel/Config/Configuration.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using Zel::Config::ConfigException;
using Zel::Config::Configuration;

class ConfigurationTest : public ::testing::Test {
protected:
    std::string file(const std::string& name, const std::string& text) {
        const std::string path = m_directory + "/" + name;
        std::ofstream(path) << text;
        return path;
    }

    void TearDown() override { std::filesystem::remove_all(m_directory); }

    const std::string m_directory = [] {
        const std::string directory = ::testing::TempDir() + "zel-config-" + std::to_string(getpid());
        std::filesystem::create_directories(directory);
        return directory;
    }();
};

TEST_F(ConfigurationTest, LaterLayersWinAndEachValueKnowsWhereItCameFrom) {
    const std::string base =
        file("base.json", R"({"threads": 2, "database": {"forcedWrites": true, "pool": 4},
                                                   "plugins": ["a.so"], "name": "base"})");
    const std::string site = file("site.json", R"({"database": {"pool": 8}, "name": "site"})");
    Configuration config;
    config.addFile(base).addFile(site);
    config.addEnvironment("ZEL_", {"ZEL_THREADS=6", "ZEL_DATA_STORE__IDLE_TIMEOUT_SECONDS=1.5",
                                   "ZEL_DATABASE__FORCEDWRITES=false", "OTHER_THREADS=9", "ZEL_=x"});
    config.setArgument("name=\"cli\"").setArgument("log.file=/tmp/h.log").setArgument("plugins=[\"b.so\"]");

    EXPECT_EQ(config.getInt("threads"), 6);
    EXPECT_EQ(config.origin("threads"), "environment ZEL_THREADS");
    EXPECT_EQ(config.getInt("database.pool"), 8);
    EXPECT_EQ(config.origin("database.pool"), site);
    EXPECT_FALSE(config.getBool("database.forcedWrites")); // matched the existing key's spelling
    EXPECT_EQ(config.getDouble("dataStore.idleTimeoutSeconds"), 1.5);
    EXPECT_EQ(config.getString("name"), "cli");
    EXPECT_EQ(config.origin("name"), "command line");
    EXPECT_EQ(config.getString("log.file"), "/tmp/h.log"); // not JSON: the text itself
    EXPECT_EQ(config.getList("plugins").toJson(), R"(["b.so"])");
    EXPECT_EQ(config.getInt("missing.value", 42), 42);
    EXPECT_EQ(config.getList("missing").size(), 0u);
    EXPECT_FALSE(config.has("database.missing"));
}

TEST_F(ConfigurationTest, JsonIniAndXmlFilesSayTheSameThingTheSameWay) {
    const std::string expected =
        R"({"database":{"connection":"DRIVER=SQLite3;Database=x.db","pool":{"size":8}},"plugins":["n.so","r.so"],"threads":4})";
    const std::pair<std::string, std::string> files[] = {
        {"host.json", R"({"threads": 4, "database": {"connection": "DRIVER=SQLite3;Database=x.db",
                          "pool": {"size": 8}}, "plugins": ["n.so", "r.so"]})"},
        {"host.ini", "threads = 4\nplugins = [\"n.so\", \"r.so\"]\n[database]\n"
                     "connection = DRIVER=SQLite3;Database=x.db\n[database.pool]\nsize = 8\n"},
        {"host.XML", "<?xml version=\"1.0\"?>\n<config threads=\"4\">\n  <database>\n"
                     "    <connection>DRIVER=SQLite3;Database=x.db</connection>\n    <pool size=\"8\"/>\n"
                     "  </database>\n  <plugins>n.so</plugins>\n  <plugins>r.so</plugins>\n</config>\n"},
    };
    for (const auto& [name, text] : files) {
        SCOPED_TRACE(name);
        Configuration config;
        config.addFile(file(name, text));
        EXPECT_EQ(config.tree().toJson(), expected);
        EXPECT_EQ(config.getInt("database.pool.size"), 8);
    }
    const std::pair<std::string, std::string> broken[] = {
        {"bad.ini", "[database\n"},
        {"bad.xml", "<config><a></b></config>"},
        {"mixed.xml", "<config><a>text<b>1</b></a></config>"},
    };
    for (const auto& [name, text] : broken) {
        SCOPED_TRACE(name);
        const std::string path = file(name, text);
        try {
            Configuration().addFile(path);
            ADD_FAILURE() << "no error";
        } catch (const ConfigException& error) {
            const std::string message = error.what();
            EXPECT_NE(message.find(" | source=" + path), std::string::npos) << message;
            EXPECT_EQ(message.rfind("Config: ", 0), 0u) << message;
        }
    }
}

TEST_F(ConfigurationTest, ErrorsNameThePathWhatWasExpectedAndTheSource) {
    const std::string good =
        file("good.json", R"({"threads": "four", "database": {"pool": 1.5}, "log": "plain"})");
    const std::string bad = file("bad.json", R"({"threads": )");
    const std::string list = file("list.json", "[1]");
    const struct {
        std::string name;
        std::function<void(Configuration&)> action;
        std::string message;
    } cases[] = {
        {"string for an integer", [](Configuration& c) { c.getInt("threads"); },
         "Config: expected an integer | found=\"four\" | path=threads | source=" + good},
        {"double for an integer", [](Configuration& c) { c.getInt("database.pool", 3); },
         "Config: expected an integer | found=1.5 | path=database.pool | source=" + good},
        {"missing required", [](Configuration& c) { c.getString("database.connection"); },
         "Config: missing value | expected=a string | path=database.connection | source=" + good},
        {"map for a list", [](Configuration& c) { c.getList("database"); },
         "Config: expected a list | found={\"pool\":1.5} | path=database | source=" + good},
        {"malformed file", [&](Configuration& c) { c.addFile(bad); },
         "Config: malformed JSON | error=Unexpected end | source=" + bad},
        {"missing file", [&](Configuration& c) { c.addFile(m_directory + "/none.json"); },
         "Config: cannot read the file | source=" + m_directory + "/none.json"},
        {"array at the top", [&](Configuration& c) { c.addFile(list); },
         "Config: the top level must be an object | source=" + list},
        {"path through a value", [](Configuration& c) { c.setArgument("log.file=x"); },
         "Config: the path crosses a value that is not an object | path=log.file | at=log | source=command "
         "line | "
         "setBy=" +
             good},
        {"empty level", [](Configuration& c) { c.setArgument("a..b=1"); },
         "Config: a path needs a name at every level | path=a..b | source=command line"},
        {"no equals sign", [](Configuration& c) { c.setArgument("threads"); },
         "Config: expected path=value | argument=threads"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Configuration config;
        config.addFile(good);
        const std::string before = config.tree().toJson();
        try {
            c.action(config);
            ADD_FAILURE() << "no exception";
        } catch (const ConfigException& error) {
            EXPECT_EQ(error.what(), c.message);
        }
        EXPECT_EQ(config.tree().toJson(), before); // a failed step changes nothing
    }
}

} // namespace
