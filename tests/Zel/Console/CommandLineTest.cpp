#include <Zel/ArgumentException.h>
#include <Zel/Console/CommandLine.h>
#include <Zel/Console/UsageException.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Zel::Console::ValueType;

// A host-like command line: global options, two sub-commands with their own options and arguments.
struct HostCommandLine {
    Zel::Console::CommandLine cli{"zel-host", "Loads a plug-in module and drives it"};
    HostCommandLine() {
        cli.option("config", ValueType::String, "Configuration file").shortName('c').defaultValue("zel.json");
        cli.option("verbose", ValueType::Flag, "More output").shortName('v');
        cli.option("quiet", ValueType::Flag, "Less output").shortName('q');
        auto& run = cli.command("run", "Run a module");
        run.option("port", ValueType::Integer, "Port to listen on").shortName('p').defaultValue("8080");
        run.option("ratio", ValueType::Double, "Sampling ratio");
        run.option("cache", ValueType::Boolean, "Use the cache").defaultValue("yes");
        run.option("define", ValueType::List, "name=value setting").shortName('D');
        run.option("user", ValueType::String, "Run as").required();
        run.positional("module", "Plug-in module").positionalList("rest", "Arguments for the module");
        cli.command("status", "Show the status").positional("what", "Part to show", false);
    }
};

TEST(CommandLine, ParsesGoodCommandLines) {
    HostCommandLine host;
    struct Row {
        std::vector<std::string> argv;
        std::string expected; // a digest of the parsed values
    };
    auto digest = [](const Zel::Console::Arguments& a) {
        std::string out = a.command() + " config=" + a.string("config") +
                          " v=" + std::to_string(a.boolean("verbose")) +
                          " q=" + std::to_string(a.boolean("quiet"));
        if (a.command() == "run") {
            out += " port=" + std::to_string(a.integer("port")) +
                   " ratio=" + std::to_string(a.number("ratio")) +
                   " cache=" + std::to_string(a.boolean("cache")) + " user=" + a.string("user") + " D=";
            for (const auto& d : a.list("define"))
                out += d + ";";
            out += " module=" + a.positional("module");
        }
        out += " pos=";
        for (const auto& p : a.positionals())
            out += p + ";";
        return out;
    };
    const Row rows[] = {
        {{"run", "--user=bob", "m.so"},
         "run config=zel.json v=0 q=0 port=8080 ratio=0.000000 cache=1 user=bob D= module=m.so pos=m.so;"},
        {{"-c", "a.json", "run", "--user", "bob", "m.so", "x", "y"},
         "run config=a.json v=0 q=0 port=8080 ratio=0.000000 cache=1 user=bob D= module=m.so pos=m.so;x;y;"},
        {{"-vq", "run", "-p9000", "--user=b", "m"},
         "run config=zel.json v=1 q=1 port=9000 ratio=0.000000 cache=1 user=b D= module=m pos=m;"},
        {{"run", "-vc", "b.json", "--user=b", "m"},
         "run config=b.json v=1 q=0 port=8080 ratio=0.000000 cache=1 user=b D= module=m pos=m;"},
        {{"run", "--user=b", "-Da=1", "-D", "b=2", "--define=c=3", "--port", "-5", "--ratio=0.25", "m"},
         "run config=zel.json v=0 q=0 port=-5 ratio=0.250000 cache=1 user=b D=a=1;b=2;c=3; module=m pos=m;"},
        {{"run", "--user=b", "--cache=OFF", "--port=+7", "--", "--not-an-option", "-"},
         "run config=zel.json v=0 q=0 port=7 ratio=0.000000 cache=0 user=b D= module=--not-an-option "
         "pos=--not-an-option;-;"},
        {{"run", "--user=", "-12"},
         "run config=zel.json v=0 q=0 port=8080 ratio=0.000000 cache=1 user= D= "
         "module=-12 pos=-12;"},
        {{"status", "--config", "--verbose"}, "status config=--verbose v=0 q=0 pos="},
        {{"status", "plugins"}, "status config=zel.json v=0 q=0 pos=plugins;"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.argv));
        EXPECT_EQ(digest(host.cli.parse(row.argv)), row.expected);
    }

    const auto given = host.cli.parse({"-c", "x", "status"});
    EXPECT_TRUE(given.isGiven("config"));
    EXPECT_FALSE(given.isGiven("verbose"));
    EXPECT_TRUE(given.has("config"));
    EXPECT_FALSE(given.has("verbose"));
    EXPECT_THAT(given.commandPath(), testing::ElementsAre("status"));
    EXPECT_THROW(given.integer("config"), Zel::ArgumentException);
    EXPECT_THROW(given.string("nonsense"), Zel::ArgumentException);
}

TEST(CommandLine, RejectsBadCommandLinesNamingTheArgument) {
    HostCommandLine host;
    struct Row {
        std::vector<std::string> argv;
        const char* message;
    };
    const Row rows[] = {
        {{"--conifg", "x", "status"}, "Unknown option | option=--conifg | suggestion=--config"},
        {{"--verbsoe", "status"}, "Unknown option | option=--verbsoe | suggestion=--verbose"},
        {{"--frobnicate", "status"}, "Unknown option | option=--frobnicate"},
        {{"--hlep"}, "Unknown option | option=--hlep | suggestion=--help"},
        {{"status", "--prot=1"}, "Unknown option | option=--prot"},
        {{"run", "--prot=1"}, "Unknown option | option=--prot | suggestion=--port"},
        {{"-vx", "status"}, "Unknown option | option=-x"},
        {{"strat"}, "Unknown command | command=strat"},
        {{"stauts"}, "Unknown command | command=stauts | suggestion=status"},
        {{}, "Missing command | commands=run,status"},
        {{"-v"}, "Missing command | commands=run,status"},
        {{"status", "--config"}, "Missing value for option | option=--config"},
        {{"run", "--user=b", "m", "-p"}, "Missing value for option | option=-p"},
        {{"--verbose=1", "status"}, "Option takes no value | option=--verbose"},
        {{"run", "--user=b", "--port=80x", "m"},
         "Invalid value for option | option=--port | value=80x | expected=integer"},
        {{"run", "--user=b", "-p", "", "m"},
         "Invalid value for option | option=-p | value= | expected=integer"},
        {{"run", "--user=b", "--port=99999999999999999999", "m"},
         "Invalid value for option | option=--port | value=99999999999999999999 | expected=integer"},
        {{"run", "--user=b", "--ratio=1e999", "m"},
         "Invalid value for option | option=--ratio | value=1e999 | expected=number"},
        {{"run", "--user=b", "--cache=maybe", "m"},
         "Invalid value for option | option=--cache | value=maybe | expected=boolean"},
        {{"run", "m"}, "Missing required option | option=--user"},
        {{"run", "--user=b"}, "Missing argument | argument=module"},
        {{"status", "a", "b"}, "Unexpected argument | argument=b"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.argv));
        try {
            host.cli.parse(row.argv);
            ADD_FAILURE() << "no error";
        } catch (const Zel::Console::UsageException& error) {
            EXPECT_EQ(error.message(), row.message);
        }
    }
}

TEST(CommandLine, HelpListsWhatWasDeclared) {
    HostCommandLine host;
    const auto top = host.cli.parse({"--help"});
    ASSERT_TRUE(top.helpRequested());
    EXPECT_EQ(top.helpText(), "Usage: zel-host [options] <command> [<args>]\n"
                              "\n"
                              "Loads a plug-in module and drives it\n"
                              "\n"
                              "Options:\n"
                              "  -c, --config <text>       Configuration file (default: zel.json)\n"
                              "  -v, --verbose             More output\n"
                              "  -q, --quiet               Less output\n"
                              "  -h, --help                Show this help and exit\n"
                              "\n"
                              "Commands:\n"
                              "  run                       Run a module\n"
                              "  status                    Show the status\n");
    // Help wins over missing required options and arguments of the sub-command.
    const auto run = host.cli.parse({"-v", "run", "-h"});
    ASSERT_TRUE(run.helpRequested());
    EXPECT_THAT(run.helpText(), testing::StartsWith("Usage: zel-host run [options] <module> [<rest>...]\n"));
    EXPECT_THAT(run.helpText(),
                testing::HasSubstr("  -p, --port <integer>      Port to listen on (default: 8080)\n"));
    EXPECT_THAT(run.helpText(), testing::HasSubstr("      --user <text>         Run as (required)\n"));
    EXPECT_THAT(run.helpText(), testing::HasSubstr("\nGlobal options:\n  -c, --config <text>"));
}

TEST(CommandLine, OptionsWithSeveralValuesKeepEachOccurrenceTogether) {
    Zel::Console::CommandLine cli("host", "");
    cli.option("call", ValueType::List, "").shortName('c').valueCount(1, 2).valueName("target json");
    cli.option("pair", ValueType::List, "").valueCount(2, 2);
    cli.option("echo", ValueType::Flag, "").shortName('e');
    cli.positionalList("module", "");
    const struct {
        std::vector<std::string> argv;
        std::string expected; // occurrences of --call, then of --pair, then the positionals
    } rows[] = {
        {{"--call", "S.o", "{}", "--call", "T.p", "m.so"}, "call=[S.o,{}][T.p,m.so] pair= pos="},
        {{"--call", "S.o", "--echo", "--call=T.p", "-1", "-c", "U.q", "-e"},
         "call=[S.o][T.p,-1][U.q] pair= pos="},
        {{"m.so", "-cS.o", "{}", "--pair", "a", "--b", "--call", "X.y", "--", "n.so"},
         "call=[S.o,{}][X.y] pair=[a,--b] pos=m.so;n.so;"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.argv));
        const auto arguments = cli.parse(row.argv);
        std::string digest;
        for (const char* name : {"call", "pair"}) {
            digest += std::string(digest.empty() ? "" : " ") + name + "=";
            for (const auto& occurrence : arguments.occurrences(name)) {
                std::string values;
                for (const auto& value : occurrence)
                    values += (values.empty() ? "" : ",") + value;
                digest += "[" + values + "]";
            }
        }
        digest += " pos=";
        for (const auto& p : arguments.positionals())
            digest += p + ";";
        EXPECT_EQ(digest, row.expected);
    }
    try {
        cli.parse({"--pair", "a"});
        ADD_FAILURE() << "no error";
    } catch (const Zel::Console::UsageException& error) {
        EXPECT_STREQ(error.message().c_str(), "Missing value for option | option=--pair");
    }
    EXPECT_NE(cli.helpText().find("-c, --call <target> [<json>]"), std::string::npos) << cli.helpText();
    EXPECT_THROW(cli.option("one", ValueType::String, "").valueCount(1, 2), Zel::ArgumentException);
    EXPECT_THROW(cli.option("two", ValueType::List, "").valueCount(2, 1), Zel::ArgumentException);
}

TEST(CommandLine, DeclarationMistakesThrowAtOnce) {
    Zel::Console::CommandLine cli("tool", "");
    cli.option("port", ValueType::Integer, "");
    EXPECT_THROW(cli.option("port", ValueType::String, ""), Zel::ArgumentException);
    EXPECT_THROW(cli.option("help", ValueType::Flag, ""), Zel::ArgumentException);
    EXPECT_THROW(cli.option("level", ValueType::Integer, "").defaultValue("high"), Zel::ArgumentException);
    EXPECT_THROW(cli.command("sub", "").option("port", ValueType::Flag, ""), Zel::ArgumentException);
}

} // namespace
